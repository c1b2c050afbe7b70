#include "plugin/live/Module.h"

#include "nimbo/base/class.h"
#include "nimbo/base/command.h"
#include "plugin/live/EleRtmpLive.h"

const char* __MODULE_string = "pluginlive@version:1.0.0";

int __cb_register_PluginLive = nimbo::base::ReflectAdd(RegisterPluginLive, 0, "PluginLive");

void RegisterPluginLive(const char* /*name*/) {
  constexpr unsigned int Version = 0x10000;
  nimbo::base::IClass* cl = nimbo::plugin::live::RegisterEleRtmpLiveClass();
  if (cl) cl->Init("pluginlive", Version, "Velmora", "plugin.author", "EleRtmpLive");
}
