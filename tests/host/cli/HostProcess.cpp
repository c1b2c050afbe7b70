#include "tests/host/cli/HostProcess.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <utility>

#include "tests/support/Eventually.h"

namespace nimbo::test {

namespace {

constexpr std::chrono::minutes Patience{1};

[[noreturn]] void RunHost(const std::vector<std::string>& arguments) {
  std::vector<const char*> argv{NIMBO_HOST};
  for (const auto& argument : arguments) argv.push_back(argument.c_str());
  argv.push_back(nullptr);
  execvp(argv[0], const_cast<char**>(argv.data()));
  _exit(127);
}

}  // namespace

HostProcess::HostProcess(Streams streams, std::vector<std::string> arguments,
                         unsigned descriptors) {
  if (streams == Streams::Terminal) {
    const winsize size{24, 200, 0, 0};
    _process = forkpty(&_out, nullptr, nullptr, &size);
    if (_process == 0) {
      setenv("TERM", "xterm", 1);
      RunHost(arguments);
    }
    _in = _out;
    return;
  }
  int in[2];
  int out[2];
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return;
  _process = fork();
  if (_process == 0) {
    dup2(in[0], STDIN_FILENO);
    const int disk = streams == Streams::FullDisk ? open("/dev/full", O_WRONLY) : out[1];
    dup2(disk, STDOUT_FILENO);
    dup2(out[1], STDERR_FILENO);
    if (descriptors > 0) {
      close(disk);
      const rlimit limit = {descriptors, descriptors};
      setrlimit(RLIMIT_NOFILE, &limit);
    }
    RunHost(arguments);
  }
  close(in[0]);
  close(out[1]);
  _in = in[1];
  _out = out[0];
}

HostProcess::~HostProcess() {
  if (_process > 0) {
    kill(_process, SIGKILL);
    waitpid(_process, nullptr, 0);
  }
  if (_in >= 0 && _in != _out) close(_in);
  if (_out >= 0) close(_out);
}

void HostProcess::Write(const std::string& text) {
  if (write(_in, text.data(), text.size()) != static_cast<ssize_t>(text.size())) CloseInput();
}

void HostProcess::CloseInput() {
  if (_in != _out && _in >= 0) close(std::exchange(_in, -1));
}

void HostProcess::FillOutput() {
  const std::string path = "/proc/" + std::to_string(_process) + "/fd/2";
  const int pipe = open(path.c_str(), O_WRONLY | O_NONBLOCK);
  const std::string piece(PIPE_BUF, '.');
  while (write(pipe, piece.data(), piece.size()) > 0) continue;
  close(pipe);
}

void HostProcess::CloseOutput() { close(std::exchange(_out, -1)); }

bool HostProcess::WaitFor(const std::string& text) {
  const auto until = std::chrono::steady_clock::now() + Patience;
  do {
    const auto at = _output.find(text, _found);
    if (at != std::string::npos) {
      _found = at + text.size();
      return true;
    }
  } while (ReadOn(until));
  return false;
}

int HostProcess::Wait() {
  const auto until = std::chrono::steady_clock::now() + Patience;
  while (ReadOn(until)) continue;
  return Ended(std::chrono::steady_clock::now() < until);
}

int HostProcess::WaitUnread() {
  siginfo_t ended = {};
  return Ended(Eventually([&] {
    waitid(P_PID, static_cast<id_t>(_process), &ended, WEXITED | WNOHANG | WNOWAIT);
    return ended.si_pid != 0;
  }));
}

int HostProcess::Ended(bool inTime) {
  int status = 0;
  if (!inTime) kill(_process, SIGKILL);
  waitpid(std::exchange(_process, -1), &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void HostProcess::Signal(int number) { kill(_process, number); }

bool HostProcess::WaitForSignals() {
  return Eventually([this] {
    std::ifstream status("/proc/" + std::to_string(_process) + "/status");
    const std::string text((std::istreambuf_iterator<char>(status)), {});
    const auto mask = [&text](const char* name) {
      const auto at = text.find(name);
      return at == std::string::npos
                 ? 0
                 : std::stoull(text.substr(at + std::strlen(name)), nullptr, 16);
    };
    // A thread that is being made has every signal blocked for a moment.
    constexpr unsigned long long Terminate = 1ULL << (SIGTERM - 1);
    constexpr unsigned long long Other = 1ULL << (SIGUSR2 - 1);
    return (mask("SigBlk:\t") & (Terminate | Other)) == Terminate && mask("ShdPnd:\t") == 0;
  });
}

bool HostProcess::ReadOn(std::chrono::steady_clock::time_point until) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      until - std::chrono::steady_clock::now());
  pollfd watched{_out, POLLIN, 0};
  if (left.count() <= 0 || poll(&watched, 1, static_cast<int>(left.count())) <= 0) return false;
  char piece[4096];
  const auto size = read(_out, piece, sizeof piece);
  if (size <= 0) return false;
  _output.append(piece, static_cast<std::size_t>(size));
  return true;
}

std::string RunShell(const std::string& script, int& code, std::vector<std::string> options) {
  options.insert(options.begin(), {"--plugin", ECHO_PLUGIN, "shell"});
  HostProcess host(HostProcess::Streams::Pipes, options);
  host.Write(script);
  host.CloseInput();
  code = host.Wait();
  return host.Output();
}

}  // namespace nimbo::test
