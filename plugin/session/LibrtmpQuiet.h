#pragma once

namespace nimbo::plugin {

/// Keeps librtmp's own lines off the console while it exists: this plug-in says itself, and in
/// other words, why a step failed. The process's log callback is never touched, and its log level
/// only where it is librtmp's default; a host that has chosen a level gets the lines that it asked
/// for.
class LibrtmpQuiet {
 public:
  LibrtmpQuiet();
  ~LibrtmpQuiet();
  LibrtmpQuiet(const LibrtmpQuiet&) = delete;
  LibrtmpQuiet& operator=(const LibrtmpQuiet&) = delete;
};

}  // namespace nimbo::plugin
