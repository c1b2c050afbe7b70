#include <stdexcept>
#include <string>

#include "nimbo/base/command.h"

namespace {

/// Which registration functions ran, in order.
std::string& Calls() {
  static std::string calls;
  return calls;
}

void RegisterLate(const char* name) { Calls().append(name).append(";"); }

void RegisterThrowing(const char* name) {
  Calls().append(name).append(";");
  throw std::runtime_error("no classes today");
}

[[maybe_unused]] const int throwing =
    nimbo::base::ReflectAdd(RegisterThrowing, 1, "SampleThrowing");
[[maybe_unused]] const int late = nimbo::base::ReflectAdd(RegisterLate, 2, "SampleLate");
const int last = nimbo::base::ReflectAdd(RegisterLate, 2, "SampleLast");
[[maybe_unused]] const int early = nimbo::base::ReflectAdd(RegisterLate, 0, "SampleEarly");

[[maybe_unused]] const int command =
    nimbo::base::omfCmdRegister("sample", [](nimbo::base::AttrSet& attrs) {
      const char* p0 = attrs.Get("p0");
      if (!p0) throw std::runtime_error("p0 is missing");
      return std::string(p0) == "good";
    });

}  // namespace

extern "C" {
NIMBO_API const char* fwSampleCalls() { return Calls().c_str(); }
NIMBO_API int fwSampleNumber() { return last; }
NIMBO_API extern int fwSampleData;
int fwSampleData = 7;
int fwSampleHidden();
int fwSampleHidden() { return 1; }
}
