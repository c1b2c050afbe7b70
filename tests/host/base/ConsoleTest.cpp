#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <set>
#include <thread>

#include "base/reflect/Line.h"
#include "tests/support/ConsoleCapture.h"

namespace nimbo::base {
namespace {

template <class... Pieces>
std::string TextOf(const Pieces&... pieces) {
  std::string text;
  ostream_string out(text);
  (out << ... << pieces);
  return text;
}

TEST(ConsoleTest, ThePathIsNeverCutBehindItsEnd) {
  test::ConsoleCapture console;
  Failure({"short", 1, "f"}, "x");
  EXPECT_EQ(console.Text(), "\033[31m/1/f:\tx\n\033[0m");
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

TEST(ConsoleTest, AConsoleThatHasGoneEndsNothing) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const int before = dup(STDOUT_FILENO);
  dup2(ends[1], STDOUT_FILENO);
  close(ends[0]);
  close(ends[1]);
  Line(Colour::Green) << "to nobody";  // would raise SIGPIPE
  dup2(before, STDOUT_FILENO);
  close(before);
  sigset_t set;
  sigpending(&set);
  EXPECT_EQ(sigismember(&set, SIGPIPE), 0);
  pthread_sigmask(SIG_SETMASK, nullptr, &set);
  EXPECT_EQ(sigismember(&set, SIGPIPE), 0);
}

}  // namespace
}  // namespace nimbo::base
