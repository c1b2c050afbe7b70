#pragma once

#include <string>

#include "nimbo/stream/application.h"

namespace nimbo::cli {

/// The pipelines of an application as a graph in Graphviz's DOT language: clusters for the
/// application, its pipelines and their elements, in them a node for each port and ring, and the
/// ways of the packets between those. Ports tell the codec where it is known. [control]
std::string GraphText(stream::Application& application);

}  // namespace nimbo::cli
