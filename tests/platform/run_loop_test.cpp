#include "platform/queues/run_loop.h"

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

#include "platform/files/descriptor.h"
#include "support/pseudo_terminal.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {
namespace {

using namespace std::chrono_literals;

/// A loop that a mistake cannot keep for ever.
class RunLoopTest : public testing::Test {
 protected:
  void runToQuit() {
    const Timer limit = loop_.after(20s, [this] {
      ADD_FAILURE() << "still running";
      loop_.quit();
    });
    loop_.run();
  }
  RunLoop loop_;
};

TEST_F(RunLoopTest, QuitLeavesTheRestForTheNextRun) {
  std::string order;
  loop_.post([&] {
    order += 'a';
    loop_.quit();
  });
  loop_.post([&] { order += 'b'; });
  loop_.post([&] { loop_.quit(); });
  runToQuit();
  EXPECT_EQ(order, "a");
  runToQuit();
  EXPECT_EQ(order, "ab");
}

TEST_F(RunLoopTest, QuitFromAnotherThreadIsNotLostHoweverEarlyItComes) {
  for (int round = 0; round < 200; ++round) {
    const std::jthread other([&] { loop_.quit(); });
    runToQuit();
  }
}

TEST_F(RunLoopTest, DeliversSignalsOnTheQueueUntilTheWatchGoes) {
  std::vector<int> seen;
  const auto thread = std::this_thread::get_id();
  auto watch = loop_.watchSignals({SIGUSR1, SIGUSR2}, [&](int signal) {
    EXPECT_EQ(std::this_thread::get_id(), thread);
    seen.push_back(signal);
    if (seen.size() == 2) loop_.quit();
    ::raise(SIGUSR2);
  });
  ::raise(SIGUSR1);
  EXPECT_TRUE(seen.empty());
  runToQuit();
  EXPECT_EQ(seen, (std::vector{SIGUSR1, SIGUSR2}));
  watch.reset();
  struct sigaction action{};
  ::sigaction(SIGUSR1, nullptr, &action);
  EXPECT_EQ(action.sa_handler, SIG_DFL);
}

/// A pipe whose writing end is ours.
struct Pipe {
  Pipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) == 0) reading = Descriptor(ends[0]), writing = Descriptor(ends[1]);
  }
  void write(std::string_view text) const {
    EXPECT_EQ(::write(writing.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  Descriptor reading;
  Descriptor writing;
};

TEST_F(RunLoopTest, ReadsLinesWhateverThePiecesInWhichTheyCome) {
  const Pipe pipe;
  std::vector<std::string> lines;
  const auto watch = loop_.watchLines(
      pipe.reading.get(),
      [&](std::string line) {
        lines.push_back(std::move(line));
        loop_.quit();
      },
      [] { ADD_FAILURE() << "no end yet"; });
  pipe.write("on");
  pipe.write("e\n");
  runToQuit();
  EXPECT_EQ(lines, std::vector<std::string>{"one"});
  EXPECT_EQ(::fcntl(pipe.reading.get(), F_GETFL) & O_NONBLOCK, 0)
      << "the mode is shared with every program on the same terminal";
}

TEST_F(RunLoopTest, DeliversTheUnfinishedLastLineAndThenTheEnd) {
  struct Case {
    std::string input;
    std::vector<std::string> lines;
  };
  const std::string huge(300'000, 'x');
  const TemporaryFolder folder;
  for (const auto& each : {Case{"", {}}, Case{"a\nb", {"a", "b"}}, Case{"a\n\nb\n", {"a", "", "b"}},
                           Case{"\n", {""}}, Case{huge + "\n" + huge, {huge, huge}}}) {
    const Descriptor file(::open(folder.file("input", each.input).c_str(), O_RDONLY | O_CLOEXEC));
    std::vector<std::string> lines;
    int ends = 0;
    const auto watch = loop_.watchLines(
        file.get(), [&](std::string line) { lines.push_back(std::move(line)); },
        [&] {
          ++ends;
          loop_.quit();
        });
    runToQuit();
    EXPECT_EQ(lines, each.lines);
    EXPECT_EQ(ends, 1);
  }
}

TEST_F(RunLoopTest, LineWatchMayBeDestroyedByItsOwnHandlerAndLeavesTheRest) {
  const Pipe pipe;
  std::vector<std::string> lines;
  std::shared_ptr<RunLoop::LineWatch> watch;
  watch = loop_.watchLines(
      pipe.reading.get(),
      [&](std::string line) {
        lines.push_back(std::move(line));
        watch.reset();
        loop_.quit();
      },
      [] { ADD_FAILURE(); });
  pipe.write("one\ntwo\nthree");
  runToQuit();
  EXPECT_EQ(lines, std::vector<std::string>{"one"});
  pipe.write("for another reader");
  char rest[64];
  EXPECT_EQ(::read(pipe.reading.get(), rest, sizeof rest), 18);
}

TEST_F(RunLoopTest, LineWatchOfASilentSourceEndsAtOnce) {
  const Pipe pipe;
  auto watch = loop_.watchLines(pipe.reading.get(), [](std::string) {}, [] {});
  watch.reset();  // joins the reading thread
}

/// One that echoes what is typed.
struct Terminal : PseudoTerminal {
  /// Until the terminal has it.
  void type(std::string_view line) const {
    press(line);
    std::string echo;
    char piece[256];
    while (!echo.ends_with('\n')) {
      const auto count = ::read(user.get(), piece, sizeof piece);
      ASSERT_GT(count, 0);
      echo.append(piece, static_cast<std::size_t>(count));
    }
  }
};

TEST_F(RunLoopTest, WhatWasTypedBeforeTheDiscardIsNoLine) {
  const Terminal terminal;
  std::vector<std::string> lines;
  std::shared_ptr<RunLoop::LineWatch> watch;
  watch = loop_.watchLines(
      terminal.program.get(),
      [&](std::string line) {
        lines.push_back(std::move(line));
        if (lines.back() == "new") loop_.quit();
        // Each line is an answer, and the next question is asked at once.
        RunLoop::discardPending(*watch);
        terminal.type("new\n");
      },
      [] { ADD_FAILURE() << "no end yet"; });
  for (int round = 0; round < 100; ++round) {
    lines.clear();
    terminal.type("stale\n");
    // Perhaps on its way to this queue by now, perhaps not.
    for (int wait = 0; wait < round; ++wait) std::this_thread::yield();
    RunLoop::discardPending(*watch);
    terminal.type("first\n");
    runToQuit();
    ASSERT_EQ(lines, (std::vector<std::string>{"first", "new"})) << "round " << round;
    RunLoop::discardPending(*watch);
  }
}

TEST_F(RunLoopTest, LineWatchEndsAtOnceThoughOthersFlushItsTerminal) {
  const Terminal terminal;
  termios mode{};
  ::tcgetattr(terminal.program.get(), &mode);
  mode.c_lflag &= ~static_cast<tcflag_t>(ECHO);  // a flush takes the echo too
  ::tcsetattr(terminal.program.get(), TCSANOW, &mode);
  const auto press = [&] { terminal.press("\n"); };

  std::jthread flusher([&](const std::stop_token& stop) {
    while (!stop.stop_requested()) ::tcflush(terminal.program.get(), TCIFLUSH);
  });
  std::atomic<int> rounds = 0;
  auto ended = std::async(std::launch::async, [&] {
    for (; rounds < 1000; ++rounds) {
      const auto watch = loop_.watchLines(terminal.program.get(), [](std::string) {}, [] {});
      std::this_thread::yield();
      press();
    }
  });
  // As long as rounds end, none of them hangs, however slow this machine is.
  int before = -1;
  while (ended.wait_for(20s) != std::future_status::ready && before != rounds) before = rounds;
  EXPECT_EQ(rounds, 1000);
  flusher.request_stop();
  while (ended.wait_for(1ms) != std::future_status::ready) press();  // releases one that waits
  EXPECT_EQ(::fcntl(terminal.program.get(), F_GETFL) & O_NONBLOCK, 0)
      << "the mode is shared with every program on the same terminal";
}

}  // namespace
}  // namespace vantrell::tests
