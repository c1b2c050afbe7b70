#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace nimbo::test {

/// The program `nimbo-host` as a child process whose standard streams are this test's: a terminal,
/// or a pipe in and one pipe for both outputs, or for standard error alone, with standard output on
/// a disk that is full. Killed at the end of its scope if it still runs.
class HostProcess {
 public:
  enum class Streams { Terminal, Pipes, FullDisk };
  /// With `descriptors` above zero it may have so many open.
  HostProcess(Streams streams, std::vector<std::string> arguments, unsigned descriptors = 0);
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;
  ~HostProcess();

  void Write(const std::string& text);
  /// Ends the standard input of a process with pipes.
  void CloseInput();
  /// Has its output find no more room, until this test reads on.
  void FillOutput();
  /// Reads its output no more, ever.
  void CloseOutput();
  /// Reads on until the output behind what earlier calls found holds `text`. False when it ended or
  /// a minute passed without.
  bool WaitFor(const std::string& text);
  /// Reads on until the process ends; its exit code, 128 + N for a signal.
  int Wait();
  /// The same, without reading.
  int WaitUnread();
  void Signal(int number);
  /// Waits until the program takes signals, and has taken those that were sent.
  bool WaitForSignals();
  /// All that was read so far.
  const std::string& Output() const { return _output; }

 private:
  int Ended(bool inTime);
  bool ReadOn(std::chrono::steady_clock::time_point until);

  pid_t _process = -1;
  int _in = -1;
  int _out = -1;
  std::string _output;
  std::size_t _found = 0;
};

/// The output of a shell that executes `script`, with the echo plug-in; its exit code in `code`.
std::string RunShell(const std::string& script, int& code, std::vector<std::string> options = {});

}  // namespace nimbo::test
