#include "nimbo/base/command.h"
#include "plugin/live/EleRtmpLive.h"

// Of the second plug-in only the objects are part of the program, so its class is registered here.
namespace nimbo::test {

[[maybe_unused]] const int Registered = base::ReflectAdd(
    [](const char*) { plugin::live::RegisterEleRtmpLiveClass(); }, 0, "PluginLive");

}  // namespace nimbo::test
