#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/Status.h"
#include "host/base/Pin.h"
#include "host/stream/Message.h"
#include "host/stream/TreeList.h"
#include "nimbo/stream/object.h"
#include "nimbo/stream/port.h"

/// The tree of live objects: services and applications, their pipelines and elements.
/// Objects are named by paths: SERVICE, APPLICATION, PIPELINE (one that was created by itself),
/// APPLICATION/PIPELINE, APPLICATION/ELEMENT, PIPELINE/ELEMENT. Names are compared as Hash
/// does; where an element and a pipeline have the same path, it means the element.

namespace nimbo::stream {

class IElement;
class Pipeline;

/// One live object, as it was when it was looked at.
struct LiveObject {
  std::string path;
  std::string name;
  std::string className;  ///< empty when no class made it
  std::string status;     ///< "null", "ready" or "play"
};

/// [any] All live objects: services and applications in the order of their creation, each
/// application's pipelines and elements behind it.
NIMBO_API std::vector<LiveObject> ListObjects();

/// [control] The object at `path`; null when there is none.
NIMBO_API Object* FindObject(const std::string& path);
/// [any] The same, pinned: for readers on other threads.
NIMBO_API std::optional<base::Pin> PinObject(const std::string& path);

/// [control] The port that `text` names: ELEMENT-PATH.outN or .inN (counted from 0), .out or .in
/// (the first free one), or the hexadecimal address of a live port, 0 for a null one.
NIMBO_API Result<IPort*> FindPort(const std::string& text);
/// [any] The text form of a port's address, which FindPort reads.
NIMBO_API std::string PortAddress(const IPort* port);

/// [any] The path of an object.
NIMBO_API std::string PathOf(const Object& object);

/// [control] Ends everything in the global list: the last step of a host. The oldest comes first,
/// since an object that has made others for itself, as a service its application, ends them itself.
NIMBO_API void ReleaseAll();

}  // namespace nimbo::stream
