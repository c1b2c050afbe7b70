#include "host/cli/commands/Graph.h"

#include <map>
#include <vector>

#include "host/stream/State.h"
#include "host/text/Json.h"
#include "nimbo/base/class.h"

namespace nimbo::cli {

namespace {

using stream::IElement;
using stream::Pipeline;
using stream::Port;

constexpr char Beginning[] =
    "digraph nimbo {\n"
    "  rankdir=LR;\n"
    "  graph [fontname=\"sans-serif\", fontsize=11, style=\"rounded,filled\", fillcolor=white];\n"
    "  node [fontname=\"sans-serif\", fontsize=9, shape=box, height=0.2, style=filled, "
    "fillcolor=white];\n";

/// What an element is in the flow, by the colour of its cluster.
constexpr char SourceColour[] = "honeydew";
constexpr char SinkColour[] = "mistyrose";
constexpr char OtherColour[] = "whitesmoke";
constexpr struct {
  const char* name;
  const char* colour;
} ClassColours[] = {{"BridgeSource-bridge-source", "lightblue"},
                    {"AvSync-ele-sync", "lemonchiffon"}};

std::string ClassName(const base::object& object) {
  const base::IClass* cl = Framework::Class(object);
  return cl ? cl->Name() : std::string();
}

const char* Colour(const IElement& element) {
  for (const auto& known : ClassColours) {
    if (ClassName(element) == known.name) return known.colour;
  }
  const auto& state = HostState(element);
  if (state.inputs.empty()) return SourceColour;
  return state.outputs.empty() ? SinkColour : OtherColour;
}

/// A DOT string of these lines. A backslash begins an escape in labels.
std::string Label(const std::vector<std::string>& lines) {
  std::string label;
  for (const auto& line : lines) {
    if (line.empty()) continue;
    if (!label.empty()) label += "\\n";
    for (const char character : text::Utf8(line)) {
      if (character == '"' || character == '\\') label += '\\';
      label += character;
    }
  }
  return "\"" + label + "\"";
}

class Writer {
 public:
  std::string Text(stream::Application& application) {
    _text = Beginning;
    Open(application, "white");
    for (Pipeline* pipeline : HostState(application).pipelines) Add(*pipeline);
    Close();
    return _text + _edges + "}\n";
  }

 private:
  void Add(Pipeline& pipeline) {
    Open(pipeline, "white");
    for (const auto& port : HostState(pipeline).ports) Node(port.get(), {"port", Caps(*port)});
    for (const IElement* element : HostState(pipeline).elements) Add(*element);
    Close();
  }

  void Add(const IElement& element) {
    const auto& state = HostState(element);
    Open(element, Colour(element));
    AddPorts("in", state.inputs);
    AddPorts("out", state.outputs);
    for (const auto* ring : state.Rings()) Node(ring, {"ring"}, ", shape=cylinder");
    // A cluster without a node would not be drawn.
    if (state.inputs.empty() && state.outputs.empty()) Node(&element, {}, ", shape=point");
    Close();
    for (const auto& output : state.outputs) AddWays(*output);
  }

  template <class Ports>
  void AddPorts(const char* direction, const Ports& ports) {
    for (std::size_t i = 0; i < ports.size(); ++i) {
      const Port& port = *ports[i];
      Node(&port, {direction + std::to_string(i), Caps(port)},
           port.Linked() ? "" : ", style=\"filled,dashed\"");
    }
  }

  /// From the input that an output follows, through its ring, to the port that it is linked to.
  void AddWays(const Port& output) {
    const void* from = output.Followed();
    if (const void* ring = output.Ring()) {
      if (from) Edge(from, ring, " [style=dotted]");
      from = ring;
    }
    if (from) Edge(from, &output, " [style=dotted]");
    if (output.Linked()) Edge(&output, output.Peer(), "");
  }

  static std::string Caps(const Port& port) { return *port.Caps() ? port.Caps() : "any"; }

  void Open(const base::object& object, const char* colour) {
    Line("subgraph cluster_" + std::to_string(_clusters++) + " {");
    ++_depth;
    Line("label=" + Label({object.Name(), ClassName(object)}) + "; fillcolor=" + colour + ";");
  }
  void Close() {
    --_depth;
    Line("}");
  }
  void Node(const void* thing, const std::vector<std::string>& label,
            const std::string& more = "") {
    Line(Id(thing) + " [label=" + Label(label) + more + "];");
  }
  void Edge(const void* from, const void* to, const char* more) {
    const std::string edge = "  " + Id(from) + " -> " + Id(to) + more + ";\n";
    if (_edges.find(edge) == std::string::npos) _edges += edge;  // outputs share rings
  }
  void Line(const std::string& text) { _text += std::string(2 * _depth, ' ') + text + "\n"; }

  /// Numbers, not addresses, so that the same configuration gives the same text.
  std::string Id(const void* thing) {
    return "n" + std::to_string(_ids.try_emplace(thing, _ids.size()).first->second);
  }

  std::string _text;
  std::string _edges;
  std::map<const void*, std::size_t> _ids;
  std::size_t _clusters = 0;
  std::size_t _depth = 1;
};

}  // namespace

std::string GraphText(stream::Application& application) { return Writer().Text(application); }

}  // namespace nimbo::cli
