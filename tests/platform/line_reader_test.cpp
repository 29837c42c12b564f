#include "platform/queues/line_reader.h"

#include <atomic>
#include <fcntl.h>
#include <future>
#include <gtest/gtest.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

#include "platform/files/descriptor.h"
#include "platform/queues/run_loop.h"
#include "support/pseudo_terminal.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {
namespace {

using namespace std::chrono_literals;

class LineReaderTest : public testing::Test {
 protected:
  /// What a mistake cannot keep for ever.
  void runToQuit() {
    const Timer limit = loop_.after(20s, [this] {
      ADD_FAILURE() << "still running";
      loop_.quit();
    });
    loop_.run();
  }
  std::shared_ptr<LineReader> begin(int descriptor, std::function<void(std::string)> onLine,
                                    std::function<void()> onEnd) {
    return LineReader::begin(loop_, {.descriptor = descriptor,
                                     .onLine = std::move(onLine),
                                     .onEnd = std::move(onEnd),
                                     .isInForeground = {}});
  }
  RunLoop loop_;
};

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

TEST_F(LineReaderTest, ReadsLinesWhateverThePiecesInWhichTheyCome) {
  const Pipe pipe;
  std::vector<std::string> lines;
  const auto reader = begin(
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

TEST_F(LineReaderTest, DeliversTheUnfinishedLastLineAndThenTheEnd) {
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
    const auto reader = begin(
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

TEST_F(LineReaderTest, MayBeDestroyedByItsOwnHandlerAndLeavesTheRest) {
  const Pipe pipe;
  std::vector<std::string> lines;
  std::shared_ptr<LineReader> reader;
  reader = begin(
      pipe.reading.get(),
      [&](std::string line) {
        lines.push_back(std::move(line));
        reader.reset();
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

TEST_F(LineReaderTest, OfASilentSourceEndsAtOnce) {
  const Pipe pipe;
  auto reader = begin(pipe.reading.get(), [](std::string) {}, [] {});
  reader.reset();
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

TEST_F(LineReaderTest, WhatWasTypedBeforeTheDiscardIsNoLine) {
  const Terminal terminal;
  std::vector<std::string> lines;
  std::shared_ptr<LineReader> reader;
  reader = begin(
      terminal.program.get(),
      [&](std::string line) {
        lines.push_back(std::move(line));
        if (lines.back() == "new") loop_.quit();
        // Each line is an answer, and the next question is asked at once.
        reader->discardPending();
        terminal.type("new\n");
      },
      [] { ADD_FAILURE() << "no end yet"; });
  for (int round = 0; round < 100; ++round) {
    lines.clear();
    terminal.type("stale\n");
    // Perhaps on its way to this queue by now, perhaps not.
    for (int wait = 0; wait < round; ++wait) std::this_thread::yield();
    reader->discardPending();
    terminal.type("first\n");
    runToQuit();
    ASSERT_EQ(lines, (std::vector<std::string>{"first", "new"})) << "round " << round;
    reader->discardPending();
  }
}

TEST_F(LineReaderTest, EndsAtOnceThoughOthersFlushItsTerminal) {
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
      const auto reader = begin(terminal.program.get(), [](std::string) {}, [] {});
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
