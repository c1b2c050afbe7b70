#include "host/stream/Shielded.h"

#include "host/stream/Tree.h"

namespace nimbo::stream {

bool RefuseException(const char* call, const base::object* instance) {
  const auto* known = dynamic_cast<const Object*>(instance);
  const std::string who = known ? PathOf(*known) : instance ? instance->Name() : std::string();
  return nimbo::RefuseException(who.empty() ? call : std::string(call) + " of " + who);
}

}  // namespace nimbo::stream
