// A command whose loop, streams and end are not those of its process.
#include "shell/terminal/command_context.h"

#include <fcntl.h>
#include <future>
#include <gtest/gtest.h>

#include "platform/queues/manual_main_queue.h"

namespace vantrell::shell {
namespace {

class CommandOfAnother : public testing::Test {
 protected:
  struct Pipe {
    Pipe() {
      int ends[2] = {-1, -1};
      EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
      reading = Descriptor(ends[0]), writing = Descriptor(ends[1]);
    }
    Descriptor reading, writing;
  };

  std::size_t readAll(std::size_t bytes) const {
    std::size_t got = 0;
    char piece[1 << 16];
    while (got < bytes) {
      const auto count = ::read(output.reading.get(), piece, sizeof piece);
      if (count <= 0) break;
      got += static_cast<std::size_t>(count);
    }
    return got;
  }

  static constexpr std::size_t muchOutput = 1 << 20;  // far more than a pipe holds
  Pipe input, output;
  ManualMainQueue main;
  std::vector<int> ends;
  CommandContext context{
      main,
      {.input = input.reading.get(),
       .streams = {.output = output.writing.get(), .error = output.writing.get()},
       .folder = "/somewhere"},
      {},
      {},
      [this](int status) { ends.push_back(status); }};
};

TEST_F(CommandOfAnother, ReportsItsEndWhenItsReaderHasEverything) {
  std::string given;
  context.readInput([&](std::string all) {
    given = std::move(all);
    context.console.write(std::string(muchOutput, 'x'));
    context.finish(exitStatus::completed);
  });
  ASSERT_EQ(::write(input.writing.get(), "one\ntwo", 7), 7);
  input.writing.reset();
  EXPECT_TRUE(main.runUntil([&] { return !given.empty(); }));
  EXPECT_EQ(given, "one\ntwo\n");
  main.runReady();
  EXPECT_TRUE(ends.empty());
  EXPECT_EQ(readAll(muchOutput), muchOutput);
  EXPECT_TRUE(main.runUntil([&] { return !ends.empty(); }));
  EXPECT_EQ(ends, std::vector{exitStatus::completed});
}

TEST_F(CommandOfAnother, EndsWithoutItsReaderOnceItIsAbandoned) {
  context.console.write(std::string(muchOutput, 'x'));
  context.finish(exitStatus::completed);
  main.runReady();
  context.abandon(exitStatus::stopped);
  main.advance(std::chrono::seconds(1));
  EXPECT_EQ(ends, std::vector{exitStatus::stopped});
}

TEST_F(CommandOfAnother, CallbacksThatOutliveItDoNothingAndItsWorkIsWaitedFor) {
  int calls = 0;
  const auto late = context.whileAlive([&](int number) { calls += number; });
  auto before = late;
  before(1);
  std::promise<void> isAllowed;
  context.inBackground([&] { isAllowed.get_future().wait(); }, [&] { calls += 100; });
  context.abandon(exitStatus::stopped);
  main.runReady();
  main.advance(std::chrono::seconds(1));
  EXPECT_TRUE(ends.empty()) << "its work uses what it keeps";
  auto after = late;
  after(10);
  isAllowed.set_value();
  while (ends.empty()) main.advance(std::chrono::seconds(1));
  EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace vantrell::shell
