// Properties as text: all of an object at once, and one by one. The last byte chooses the class.

#include "base/reflect/Class.h"
#include "base/reflect/TClass.h"
#include "fuzz/Fuzz.h"
#include "host/base/Framework.h"
#include "nimbo/stream/object.h"
#include "plugin/rtmp/_test.h"

namespace nimbo::fuzz {
namespace {

using base::AttrSet;

struct Releaser {
  void operator()(base::object* object) const { object->Release(); }
};
using Holder = std::unique_ptr<stream::Object, Releaser>;

Holder New(const char* type) {
  AttrSet attrs;
  attrs.Set("type", type);
  return Holder(base::IClass::New<stream::Object>(attrs));
}

/// What an object tells of itself is taken by another one: setting by setting, then as a whole.
void CheckCopy(stream::Object& object, const char* type) {
  AttrSet settings;
  object.toAttrSet(settings);
  const Holder second = New(type), third = New(type);
  bool taken = true;
  std::string whole, again;
  for (const auto& [key, value] : Framework::Entries(settings)) {
    if (!BracesMatch(value)) return;
    taken = second->Set(key.c_str(), value.c_str()) && taken;
    Require(second->GetStr(key.c_str(), again) && again == value, "a setting is as it was");
  }
  object.toString(whole);
  Require(third->fromString(whole.c_str()) == taken, "the whole is taken as its settings are");
  third->toString(again);
  Require(!taken || again == whole, "the whole is as it was");
}

}  // namespace

void Run(FuzzedDataProvider in) {
  static const bool registered = (RegisterPluginRtmp(nullptr), true);
  constexpr const char* Types[] = {"EleRtmpClient", "RtmpStreamPusher", "pipeline-rtmp-client",
                                   "shm-source",    "fifofilter",       "RingSink",
                                   "ele-sync"};
  const char* type = in.PickValueInArray(Types);
  const std::string text = in.ConsumeRemainingBytesAsString();
  const AttrSet given(text.c_str());
  if (!registered || given.Get("status")) return;  // opening could reach for a server

  const Holder object = New(type);
  Require(!object->fromString(text.c_str()) || Framework::Valid(given),
          "an unreadable text is refused");
  for (const auto* property : Framework::Properties(*object)) {
    std::string value, printed;
    base::ostream_string out(printed);
    if (!object->GetStr(property->Name().c_str(), value) || !property->print) continue;
    property->print(out, *object);
    Require(printed == value + "\n", "print and text agree");
  }
  CheckCopy(*object, type);
}

}  // namespace nimbo::fuzz
