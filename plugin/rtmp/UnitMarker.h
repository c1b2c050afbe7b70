#pragma once

namespace nimbo::plugin::rtmp {

/// What each unit of the plug-in sets its marker to when the library is loaded. Read through a
/// volatile, so that no compiler makes the markers initialised data.
inline int MarkUnit() {
  volatile int loaded = -1;
  return loaded;
}

}  // namespace nimbo::plugin::rtmp
