#include "platform/queues/output_sink.h"

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/files/descriptor.h"
#include "platform/queues/manual_main_queue.h"

namespace vantrell::tests {
namespace {

class OutputSinkTest : public testing::Test {
 protected:
  OutputSinkTest() {
    std::signal(SIGPIPE, SIG_IGN);
    int ends[2] = {-1, -1};
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    reading = Descriptor(ends[0]);
    writing = Descriptor(ends[1]);
  }
  /// Reads until the given number of bytes has come.
  std::string read(std::size_t bytes) const {
    std::string all;
    char piece[4096];
    while (all.size() < bytes) {
      const ssize_t count = ::read(reading.get(), piece, sizeof piece);
      if (count <= 0) break;
      all.append(piece, static_cast<std::size_t>(count));
    }
    return all;
  }

  /// Or cannot be.
  bool isWritten(OutputSink& sink) {
    bool isDone = false;
    sink.whenWritten([&] { isDone = true; });
    return main.runUntil([&] { return isDone; });
  }

  ManualMainQueue main;
  Descriptor reading;
  Descriptor writing;
};

TEST_F(OutputSinkTest, WritesEverythingInOrder) {
  OutputSink sink(main, writing.get());
  std::string expected;
  for (int number = 0; number < 1000; ++number) {
    const std::string piece = std::to_string(number) + ",";
    sink.write(piece);
    expected += piece;
  }
  EXPECT_TRUE(isWritten(sink));
  EXPECT_EQ(read(expected.size()), expected);
}

TEST_F(OutputSinkTest, TellsAReaderWhoHasGoneFromADiskThatIsFull) {
  const Descriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  OutputSink onDisk(main, full.get());
  EXPECT_EQ(onDisk.error(), 0);
  onDisk.write("x");
  EXPECT_TRUE(isWritten(onDisk));
  EXPECT_EQ(onDisk.error(), ENOSPC);

  reading.reset();
  OutputSink toNobody(main, writing.get());
  toNobody.write("x");
  EXPECT_TRUE(isWritten(toNobody));
  EXPECT_EQ(toNobody.error(), EPIPE);
}

TEST_F(OutputSinkTest, TellsWhenItIsFullAndWhenThereIsRoomAgain) {
  OutputSink sink(main, writing.get());
  std::vector<bool> told;
  sink.onFullChanged = [&](bool isFull) { told.push_back(isFull); };
  const std::string piece(OutputSink::bound / 4, 'x');  // far more than a pipe holds
  for (int count = 0; count < 4; ++count) sink.write(piece);
  EXPECT_TRUE(told.empty()) << "at the bound, not beyond it";
  for (int count = 0; count < 2; ++count) sink.write(piece);
  EXPECT_EQ(told, std::vector{true});
  bool isWritten = false;
  sink.whenWritten([&] { isWritten = true; });
  main.runReady();
  EXPECT_FALSE(isWritten);
  EXPECT_EQ(read(6 * piece.size()).size(), 6 * piece.size());
  EXPECT_TRUE(main.runUntil([&] { return told.size() > 1 && isWritten; }));
  EXPECT_EQ(told, (std::vector{true, false}));
}

TEST_F(OutputSinkTest, MayEndWhileNobodyReads) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const Descriptor socket(ends[0]), itsReader(ends[1]);
  const int size = 1;  // less room than a piece needs, and yet it is ready
  ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
  for (const int each : {writing.get(), socket.get()}) {
    OutputSink sink(main, each);
    sink.write(std::string(OutputSink::bound, 'x'));
    std::string some(64, '\0');
    const int other = each == socket.get() ? itsReader.get() : reading.get();
    EXPECT_GT(::read(other, some.data(), some.size()), 0);  // it is at work
    EXPECT_EQ(::fcntl(each, F_GETFL) & O_NONBLOCK, 0) << "the mode is shared with other programs";
  }
}

TEST_F(OutputSinkTest, WritesNothingWhileItMayNot) {
  std::atomic<bool> isAllowed = false;
  std::atomic<int> asked = 0;
  OutputSink sink(main, writing.get(), [&] {
    if (++asked == 2) main.post([] {});
    return isAllowed.load();
  });
  sink.write("x");
  EXPECT_TRUE(main.runUntil([&] { return asked > 1; }));
  int held = -1;
  EXPECT_EQ(::ioctl(reading.get(), FIONREAD, &held), 0);
  EXPECT_EQ(held, 0);
  isAllowed = true;
  EXPECT_EQ(read(1), "x");
}

TEST_F(OutputSinkTest, TellsOnceThatItsReaderIsGoneAndDropsTheRest) {
  OutputSink sink(main, writing.get());
  int broken = 0;
  sink.onBroken = [&] { ++broken; };
  reading.reset();
  sink.write("nobody");
  EXPECT_TRUE(main.runUntil([&] { return broken > 0; }));
  EXPECT_EQ(sink.error(), EPIPE);
  sink.write("more");
  EXPECT_TRUE(isWritten(sink)) << "nothing more can be";
  main.runReady();
  EXPECT_EQ(broken, 1);
}

}  // namespace
}  // namespace vantrell::tests
