#include "nimbo/stream/service.h"

#include "base/reflect/Class.h"
#include "host/base/ClassRegistry.h"
#include "host/base/Console.h"
#include "host/base/ControlThread.h"
#include "nimbo/stream/factory.h"

namespace nimbo::stream {

Service::Service() = default;
Service::~Service() = default;

Service* Service::New(const char* type, const char* name, const char* cfgs) {
  base::AssertControlThread();
  base::IClass* cl = type ? base::IClass::Globle().Find(type, false, &typeid(Service)) : nullptr;
  if (!cl) {
    Explain("There is no service class \"", type, "\"",
            base::IClass::Globle().Suggest(type ? type : "", {&typeid(Service)}));
    return nullptr;
  }
  if (name && *name && Factory::Globle().Find<base::object>(name, true)) {
    Explain("The name \"", name, "\" is in use: release that object first");
    return nullptr;
  }
  base::object* created = base::ClassRegistry::Create(*cl, type, name, cfgs, nullptr);
  auto* service = base::object::AsType<Service>(created);
  if (service) {
    Factory::Globle().Add(*service);
  } else if (created) {
    created->Release();
  }
  return service;
}

}  // namespace nimbo::stream
