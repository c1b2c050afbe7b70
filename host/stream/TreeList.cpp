#include "host/stream/TreeList.h"

namespace nimbo::stream {

sync::Mutex& TreeMutex() {
  static auto& mutex = *new sync::Mutex;
  return mutex;
}

}  // namespace nimbo::stream
