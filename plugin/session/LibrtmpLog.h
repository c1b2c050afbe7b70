#pragma once

#include <cstdarg>
#include <functional>
#include <string>
#include <utility>

namespace nimbo::plugin {

/// Keeps what librtmp says in the calling thread while it exists, so that a step that fails can be
/// explained, and keeps librtmp's own lines off the console.
class LibrtmpLog {
 public:
  LibrtmpLog();
  ~LibrtmpLog();
  LibrtmpLog(const LibrtmpLog&) = delete;
  LibrtmpLog& operator=(const LibrtmpLog&) = delete;

  /// Calls `hook` when the server refuses the publish, which librtmp itself overlooks.
  void OnRefusal(std::function<void()> hook) { _on_refusal = std::move(hook); }
  /// Calls `hook` whenever librtmp says anything, which it does for every message that it reads.
  void OnLine(std::function<void()> hook) { _on_line = std::move(hook); }
  /// The last thing that tells why a step failed: what the server answered, else librtmp's last
  /// error; empty when there was neither.
  std::string Reason() const;

 private:
  static void Receive(int level, const char* format, va_list arguments);

  LibrtmpLog* _outer;
  std::function<void()> _on_refusal;
  std::function<void()> _on_line;
  std::string _answer;
  std::string _error;
};

/// `text` with the stream name and the token of `url` shortened to their first characters, so that
/// it can be shown. `name` is the stream name as librtmp reads it; may be empty.
std::string HideSecrets(std::string text, const std::string& url, const std::string& name);

}  // namespace nimbo::plugin
