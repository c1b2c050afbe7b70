#pragma once

#include <string>

namespace nimbo::capture::av {

/// [control] Sends what libav logs through one filter instead of to the standard error output: of
/// its errors each becomes one yellow console line, a repetition of the line before none; all else
/// is dropped.
void InstallLogFilter();

/// [any] A complaint of libav, one line without the newline.
void Complain(const std::string& text);

/// While it lives, what libav complains about on this thread is kept for the caller's own line
/// instead of being printed. May be nested.
class LogScope {
 public:
  LogScope();
  LogScope(const LogScope&) = delete;
  LogScope& operator=(const LogScope&) = delete;
  ~LogScope();

  /// The first complaint so far in brackets behind a blank, to be put behind libav's error text;
  /// empty when there was none.
  std::string Detail() const;

 private:
  friend void Complain(const std::string& text);
  std::string _first;
  LogScope* _outer;
};

}  // namespace nimbo::capture::av
