#include "host/stream/Console.h"

#include "host/base/Guard.h"
#include "host/stream/Tree.h"

namespace nimbo::stream {

bool& FailureTold() {
  thread_local bool told = false;
  return told;
}

bool RefuseException(const char* call, const base::object* instance) {
  FailureTold() = true;
  const auto* known = dynamic_cast<const Object*>(instance);
  const std::string who = known ? PathOf(*known) : instance ? instance->Name() : std::string();
  base::TellException(who.empty() ? call : std::string(call) + " of " + who);
  return false;
}

}  // namespace nimbo::stream
