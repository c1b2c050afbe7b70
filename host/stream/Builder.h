#pragma once

#include <string>

#include "base/reflect/TClass.h"
#include "host/base/ClassRegistry.h"
#include "host/base/Framework.h"
#include "nimbo/stream/application.h"
#include "nimbo/stream/pipeline.h"

/// Builds applications and pipelines from configuration texts. [control]
/// A failure is told in one console line that quotes the piece and its position; what was built up
/// to then is left to the caller.

namespace nimbo::stream {

/// Fills a pipeline with the elements of `text`, each linked to the next.
bool BuildPipeline(Pipeline& pipeline, const std::string& text);

/// Fills an application. Entries that name an element class: consecutive ones make one pipeline;
/// one with `link=all` gets a pipeline of its own, with one BridgeSource for every output of all
/// earlier entries and one synchroniser. Entries that name a pipeline class make that pipeline; one
/// with `link=all` is linked from every output of all earlier entries. An entry finds its class by
/// exact name first, then among the elements, then among the pipelines. What it held before stays
/// and stands in front of the new entries.
NIMBO_API bool BuildApplication(Application& application, const std::string& text);

/// Makes an application called `name`, a name that is not in use, from a configuration text. Null
/// on failure, when nothing is left of it.
NIMBO_API Application* CreateApplication(const std::string& name, const std::string& text);

/// Adds the entries of `text` to an application as if they stood behind its own, and brings what
/// they make to the application's status. What there was before goes on meanwhile. False on
/// failure, when nothing is left of them.
NIMBO_API bool ExtendApplication(Application& application, const std::string& text);

/// Takes down and destroys what a container holds, the last first.
void DestroyElements(Pipeline& pipeline);
void DestroyPipelines(Application& application);

/// [loading] The property "status" of a container class.
base::IProperty* NewStatusProperty();

/// [loading] Registers a container class with the properties that both kinds have.
template <class T>
base::IClass* RegisterContainer(const char* name, const char* description) {
  auto* serialize = new base::TProperty;
  serialize->init("serialize", Framework::SetSerialize<T>(),
                  "what it is made of, as a configuration text");
  serialize->initGet(Framework::GetSerialize<T>());
  serialize->initGetStr(Framework::GetSerialize<T>());
  base::IClass* cl = base::TClass<>::Register<T>(name, {serialize, NewStatusProperty()});
  return base::Describe(cl, "nimbo", description);
}

}  // namespace nimbo::stream
