#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <ctime>
#include <set>
#include <stdexcept>
#include <thread>

#include "host/base/Outlet.h"
#include "log/Line.h"
#include "nimbo/base/thread.h"
#include "tests/support/ConsoleCapture.h"

namespace nimbo::base {
namespace {

using log::Colour;
using log::Failure;
using log::Line;
using log::Site;

template <class... Pieces>
std::string TextOf(const Pieces&... pieces) {
  std::string text;
  ostream_string out(text);
  (out << ... << pieces);
  return text;
}

TEST(OstreamTest, ValuesHaveTheirTextForms) {
  EXPECT_EQ(TextOf("a", std::string("b"), 'c', true, false, -5, 7u, 1.5), "abctruefalse-571.5");
  EXPECT_EQ(TextOf(static_cast<const char*>(nullptr), static_cast<const void*>(nullptr),
                   reinterpret_cast<const void*>(std::uintptr_t{0xAB})),
            "(null)0x00xab");
}

TEST(ConsoleTest, ALineIsColourPlaceTextNewlineAndReset) {
  const std::string path =
      std::string(static_cast<std::size_t>(__root_path_offset), '.') + "base/Sample";
  const Site site = {path.c_str(), 12, "f"};
  test::ConsoleCapture console;
  std::fputs("printed;", stdout);  // with the C library: it comes first
  Line(Colour::Red, site) << "a";
  Line(Colour::Green, site) << "b" << 2;
  Line(Colour::Yellow) << "c";
  Line(Colour::Cyan, site) << "d";
  EXPECT_FALSE(Failure(site, "!x"));
  EXPECT_FALSE(Failure(site, "x", "is ", 3));
  Failure({"short", 1, "f"}, "x");  // a path is never cut behind its end
  EXPECT_EQ(console.Text(),
            "printed;\033[31mbase/Sample/12/f:\ta\n\033[0m\033[32mbase/Sample/12/f:\tb2\n\033[0m"
            "\033[33mc\n\033[0m\033[36mbase/Sample/12/f:\td\n\033[0m"
            "\033[31mbase/Sample/12/f:\t!x\n\033[0m\033[31mbase/Sample/12/f:\tx,is 3\n\033[0m"
            "\033[31m/1/f:\tx\n\033[0m");
}

TEST(ConsoleTest, LinesOfSeveralThreadsNeverMix) {
  constexpr int Threads = 4, LinesEach = 100;
  const std::string filling(300, '.');
  test::ConsoleCapture console;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < Threads; ++thread) {
    threads.emplace_back([thread, &filling] {
      for (int line = 0; line < LinesEach; ++line) {
        Line(Colour::Cyan) << thread << filling << line;
      }
    });
  }
  std::multiset<std::string> expected;
  for (int thread = 0; thread < Threads; ++thread) {
    threads[static_cast<std::size_t>(thread)].join();
    for (int line = 0; line < LinesEach; ++line) expected.insert(TextOf(thread, filling, line));
  }
  std::multiset<std::string> written;
  for (const test::ConsoleLine& line : console.Lines()) written.insert(line.text);
  EXPECT_EQ(written, expected);
}

/// Whether SIGPIPE is in the set that `get` fills.
template <class Get>
bool HasSigpipe(Get get) {
  sigset_t set;
  get(&set);
  return sigismember(&set, SIGPIPE) == 1;
}
const auto Blocked = [](sigset_t* set) { pthread_sigmask(SIG_SETMASK, nullptr, set); };

TEST(ConsoleTest, AConsoleThatHasGoneEndsNothingAndLeavesTheSignalsAlone) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const int before = dup(STDOUT_FILENO);
  dup2(ends[1], STDOUT_FILENO);
  close(ends[0]);
  close(ends[1]);
  const auto tellNobody = [] { Line(Colour::Green) << "to nobody"; };  // would raise SIGPIPE
  tellNobody();
  const bool raised = HasSigpipe(sigpending), blocked = HasSigpipe(Blocked);
  // One that waits for the process already is its own.
  sigset_t pipeSignal, mask;
  sigemptyset(&pipeSignal);
  sigaddset(&pipeSignal, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipeSignal, &mask);
  raise(SIGPIPE);
  tellNobody();
  const bool kept = HasSigpipe(sigpending), keptBlocked = HasSigpipe(Blocked);
  const timespec now = {};
  sigtimedwait(&pipeSignal, nullptr, &now);
  pthread_sigmask(SIG_SETMASK, &mask, nullptr);
  dup2(before, STDOUT_FILENO);
  close(before);
  EXPECT_FALSE(raised || blocked);
  EXPECT_TRUE(kept && keptBlocked);
}

/// Standard output as a pipe that is read only when asked.
class UnreadConsole : public testing::Test {
 protected:
  UnreadConsole() : before(dup(STDOUT_FILENO)) {
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
  }
  ~UnreadConsole() override {
    Outlet::Hurry(false);
    close(ends[0]);
    StandardOutput().Flush(std::chrono::milliseconds(0));  // to nobody
    dup2(before, STDOUT_FILENO);
    close(before);
  }
  std::string Read(std::size_t size) {
    std::string text(size, '\0');
    std::size_t got = 0;
    while (got < size) got += static_cast<std::size_t>(read(ends[0], &text[got], size - got));
    return text;
  }

  static constexpr std::size_t LineSize = 100;
  static constexpr int Lines = 3000;  // far more than the pipe holds, and the outlet
  static std::string Numbered(int line) {
    return std::to_string(line) + std::string(LineSize - std::to_string(line).size(), '.');
  }
  const int before;
  int ends[2] = {};
};

TEST_F(UnreadConsole, HoldsNoDeliveringThreadUpAndTellsWhatIsMissing) {
  Thread delivering("source", 0, 0, 0);
  ASSERT_TRUE(delivering.Once([] {
    for (int line = 0; line < Lines; ++line) cout << Numbered(line);
  }));
  delivering.Join();  // which it would never be
  std::string written;
  while (written.find("them\n\033[0m") == std::string::npos) {
    char piece[LineSize];
    const ssize_t got = read(ends[0], piece, sizeof piece);
    ASSERT_GT(got, 0);
    written.append(piece, static_cast<std::size_t>(got));
    StandardOutput().Flush(std::chrono::milliseconds(0));
  }
  const std::size_t gap = written.find("\033[33m");
  ASSERT_LT(gap, written.size());
  const int whole = static_cast<int>(gap / LineSize);
  EXPECT_EQ(gap % LineSize, 0u);
  for (int line = 0; line < whole; ++line) {
    ASSERT_EQ(written.substr(static_cast<std::size_t>(line) * LineSize, LineSize), Numbered(line));
  }
  EXPECT_EQ(written.substr(gap + 5, written.find(" lines", gap) - gap - 5),
            std::to_string(Lines - whole));
}

TEST_F(UnreadConsole, HasOtherThreadsWaitUntilItIsReadOrSomebodyIsInAHurry) {
  std::atomic<bool> done = false;
  const auto write = [&] {
    for (int line = 0; line < Lines; ++line) cout << Numbered(line);
    done = true;
  };
  std::thread waiting(write);
  for (int line = 0; line < Lines; ++line) ASSERT_EQ(Read(LineSize), Numbered(line));
  waiting.join();
  done = false;
  waiting = std::thread(write);
  const std::string first = Read(LineSize);
  EXPECT_EQ(first, Numbered(0));
  EXPECT_FALSE(done);
  Outlet::Hurry(true);
  waiting.join();
}

}  // namespace
}  // namespace nimbo::base
