#pragma once

#include <string>
#include <vector>

#include "host/text/Json.h"
#include "nimbo/base/class.h"
#include "nimbo/stream/element.h"

namespace nimbo::cli {

/// Something that is known about a thing: as people read it and as JSON.
struct Fact {
  const char* name;
  std::string text;
  text::Json json;
};
using Facts = std::vector<Fact>;

/// The functions of plug-ins that the shell's "call" reaches: their names begin so.
extern const char* const FunctionPrefix;
std::vector<std::string> FunctionNames();

/// All registered classes, one a line, in columns under a title line. [control]
std::string ClassesText();

/// The ports of an element, as "in h264, out h264".
std::string PortsText(const stream::IElement& element);

/// A class: what it is, its ports, and its properties with what they are in a fresh object, which
/// is made and destroyed; what that prints goes to standard error. `asked` is how the class was
/// found: other classes that it fits are named. [control]
class ClassView {
 public:
  ClassView(base::IClass& cl, const std::string& asked);
  std::string Text() const;
  std::string Json() const;

 private:
  Facts _facts;
  std::vector<Facts> _properties;
};

/// All that there is: plug-ins, classes, capture sources, commands and functions. Those of the
/// libav* module are among them when it can be loaded. [control]
std::string InventoryText();
std::string InventoryJson();

}  // namespace nimbo::cli
