#include <fstream>
#include <future>
#include <thread>

#include "platform/process_fixture.h"

namespace vantrell::tests {
namespace {

using ProcessIo = ProcessTest;

TEST_F(ProcessIo, EchoesWhatIsWrittenInTheOrderOfTheCalls) {
  const auto record = start({.executable = "/bin/cat"});
  std::string expected;
  for (int number = 0; number < 5000; ++number) {
    const auto line = std::to_string(number) + "\n";
    record->process->write(line);
    expected += line;
  }
  record->process->closeInput();
  record->process->write("too late");
  finish(record);
  EXPECT_EQ(record->output, expected);
  EXPECT_EQ(record->exits.front().code(), 0);
  EXPECT_EQ(record->process->unsentBytes(), 0U);
}

TEST_F(ProcessIo, TakesMoreThanThePipeHoldsWithoutBlockingTheWriter) {
  const std::string big(8 << 20, 'x');
  auto options = shell("read -r go < /dev/fd/0; head -c 8388608 | wc -c");
  const auto record = start(options);
  record->process->write("go\n" + big);
  EXPECT_GT(record->process->unsentBytes(), 0U);
  record->process->closeInput();
  finish(record);
  EXPECT_EQ(record->output, "8388608\n");
  EXPECT_EQ(record->process->unsentBytes(), 0U);
  EXPECT_TRUE(record->writeErrors.empty());
}

TEST_F(ProcessIo, DeliversAllOutputBeforeTheExit) {
  // More than the pipes hold, written just before the end.
  const auto record = run(shell("head -c 3000000 /dev/zero; head -c 500000 /dev/zero >&2"));
  EXPECT_EQ(record->output.size(), 3'000'000U);
  EXPECT_EQ(record->error.size(), 500'000U);
  EXPECT_TRUE(record->order.ends_with('x')) << record->order;
  EXPECT_EQ(record->exits.size(), 1U);
}

TEST_F(ProcessIo, ReportsAClosedInputOnceAndLives) {
  const auto record = start(shell("exec <&-; echo closed; sleep 30"));
  awaitOutput(*record, "closed");
  record->process->write("one\n");
  ASSERT_TRUE(main_.runUntil([&] { return !record->writeErrors.empty(); }));
  record->process->write("two\n");
  record->process->write("three\n");
  EXPECT_EQ(record->process->unsentBytes(), 0U);
  EXPECT_TRUE(record->process->isRunning());
  record->process->terminate();
  finish(record);
  ASSERT_EQ(record->writeErrors.size(), 1U);
  EXPECT_EQ(record->writeErrors.front().step, ProcessError::Step::write);
  EXPECT_EQ(record->writeErrors.front().description, "Broken pipe");
}

TEST_F(ProcessIo, SlowHandlerHoldsTheChildBack) {
  std::promise<void> release;
  const auto released = release.get_future().share();
  std::promise<void> entered;
  std::atomic<std::size_t> seen = 0;
  const auto process = Process::start(shell("exec head -c 50000000 /dev/zero"), queue_,
                                      {.onOutput =
                                           [&](std::string_view bytes) {
                                             if (seen.fetch_add(bytes.size()) == 0) {
                                               entered.set_value();
                                               released.wait();
                                             }
                                           },
                                       .onExit = [&](ExitStatus) { main_.post([] {}); }});
  ASSERT_TRUE(process);
  entered.get_future().wait();
  // The child stands still once pipe and quota are full: it sleeps, and what it wrote has stopped
  // growing for many looks.
  const auto folder = "/proc/" + std::to_string((*process)->processID());
  const auto valueOf = [&](const char* file, std::string_view wanted) {
    std::ifstream stream(folder + file);
    for (std::string key, value; stream >> key >> value;) {
      if (key == wanted) return value;
    }
    return std::string();
  };
  const auto giveUp = std::chrono::steady_clock::now() + 20s;
  std::string written;
  for (int looks = 0; looks < 200 && std::chrono::steady_clock::now() < giveUp; ++looks) {
    const auto now = valueOf("/io", "wchar:");
    if (valueOf("/status", "State:") != "S" || now != written) looks = 0;
    written = now;
    std::this_thread::yield();
  }
  EXPECT_GT(std::stoull(written), 100'000U);
  EXPECT_LT(std::stoull(written), 1'000'000U);
  release.set_value();
  EXPECT_TRUE(main_.runUntil([&] { return seen == 50'000'000; }));
}

TEST_F(ProcessIo, FloodOfErrorsDoesNotHoldBackTheOutput) {
  const auto record = start(shell("yes >&2 & echo first; read -r line; echo $line; kill $!"));
  awaitOutput(*record, "first");
  EXPECT_TRUE(main_.runUntil([&] { return record->error.size() > 1'000'000; }));
  record->process->write("second\n");
  awaitOutput(*record, "second");
  finish(record);
}

TEST_F(ProcessIo, PausedReadingHoldsTheChildUntilItIsResumed) {
  const auto record = start(shell("read -r go; head -c 2000000 /dev/zero; echo end >&2"));
  record->process->pauseReading();
  record->process->write("go\n");
  const auto beside = run(shell("echo done"));  // the reactor is past the pause now
  EXPECT_EQ(record->output, "");
  EXPECT_TRUE(record->process->isRunning());
  record->process->resumeReading();
  finish(record);
  EXPECT_EQ(record->output.size(), 2'000'000U);
  EXPECT_EQ(record->error, "end\n");
}

TEST_F(ProcessIo, PausedReadingStillDeliversWhatIsThereAtTheExit) {
  const auto record = start(shell("read -r go; echo last words; echo complaint >&2; exit 4"));
  record->process->pauseReading();
  record->process->write("go\n");
  finish(record);
  EXPECT_EQ(record->output, "last words\n");
  EXPECT_EQ(record->error, "complaint\n");
  EXPECT_EQ(record->exits.front().status, 4);
}

}  // namespace
}  // namespace vantrell::tests
