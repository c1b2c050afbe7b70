#include "host/capture/av/LibavLog.h"

#include <cstdarg>
#include <cstdio>

#include "host/base/Console.h"
#include "sync/Mutex.h"

extern "C" {
#include <libavutil/log.h>
}

namespace nimbo::capture::av {

namespace {

/// Longer complaints are cut.
constexpr std::size_t LongestText = 512;

thread_local LogScope* s_scope = nullptr;

/// The beginning of a line that libav has not finished yet on this thread.
thread_local std::string s_unfinished;

void Filter(void* context, int level, const char* format, va_list arguments) {
  // The low byte is the level; libav puts colour hints above it.
  constexpr int LevelMask = 0xFF;
  if ((level & LevelMask) > AV_LOG_ERROR) return;
  char text[LongestText];
  if (std::vsnprintf(text, sizeof text, format, arguments) < 0) return;
  if (s_unfinished.empty() && context) {
    if (const AVClass* kind = *static_cast<const AVClass* const*>(context)) {
      s_unfinished = std::string(kind->item_name(context)) + ": ";
    }
  }
  for (const char* piece = text; *piece; ++piece) {
    if (*piece != '\n') {
      s_unfinished += *piece;
      continue;
    }
    std::string line;
    line.swap(s_unfinished);
    if (!line.empty()) Complain(line);
  }
}

}  // namespace

void Complain(const std::string& text) {
  if (s_scope) {
    if (s_scope->_first.empty()) s_scope->_first = text;
    return;
  }
  static sync::Mutex mutex;
  static std::string last GUARDED_BY(mutex);
  {
    const sync::Lock lock(mutex);
    if (text == last) return;
    last = text;
  }
  Explain("libav: ", text);
}

void InstallLogFilter() { av_log_set_callback(Filter); }

LogScope::LogScope() : _outer(s_scope) { s_scope = this; }

LogScope::~LogScope() { s_scope = _outer; }

std::string LogScope::Detail() const { return _first.empty() ? "" : " (" + _first + ")"; }

}  // namespace nimbo::capture::av
