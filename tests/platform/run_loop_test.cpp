#include "platform/queues/run_loop.h"

#include <csignal>
#include <gtest/gtest.h>
#include <thread>

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

}  // namespace
}  // namespace vantrell::tests
