#include "host/stream/Factory.h"

#include <algorithm>

namespace nimbo::stream {

namespace {

class HostFactory final : public Factory {
 public:
  static HostFactory& Global() {
    static auto& factory = *new HostFactory;  // objects may leave it while the process ends
    return factory;
  }

  bool LayoutAdd(const char* common, const char* layout) override {
    if (!common || !layout) return false;
    const std::pair<std::string, std::string> pair(common, layout);
    if (std::find(layouts.begin(), layouts.end(), pair) == layouts.end()) layouts.push_back(pair);
    return true;
  }

  std::vector<std::pair<std::string, std::string>> layouts;
};

}  // namespace

Factory& Factory::Globle() { return HostFactory::Global(); }

const std::vector<std::pair<std::string, std::string>>& FactoryLayouts() {
  return HostFactory::Global().layouts;
}

}  // namespace nimbo::stream
