#include "plugin/session/LibrtmpQuiet.h"

#include <librtmp/log.h>

#include "sync/Mutex.h"

namespace nimbo::plugin {

namespace {

constexpr RTMP_LogLevel DefaultLevel = RTMP_LOGERROR;
constexpr RTMP_LogLevel QuietLevel = RTMP_LOGCRIT;

sync::Mutex mutex;  // held for moments only
int depth GUARDED_BY(mutex) = 0;
bool lowered GUARDED_BY(mutex) = false;

}  // namespace

LibrtmpQuiet::LibrtmpQuiet() {
  const sync::Lock lock(mutex);
  if (depth++ > 0) return;
  lowered = RTMP_LogGetLevel() == DefaultLevel;
  if (lowered) RTMP_LogSetLevel(QuietLevel);
}

LibrtmpQuiet::~LibrtmpQuiet() {
  const sync::Lock lock(mutex);
  if (--depth == 0 && lowered && RTMP_LogGetLevel() == QuietLevel) RTMP_LogSetLevel(DefaultLevel);
}

}  // namespace nimbo::plugin
