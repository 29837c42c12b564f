#include "platform/queues/manual_main_queue.h"
#include "platform/queues/run_loop.h"
#include "support/main_queue_contract.h"

namespace vantrell {
namespace {

class RunLoopUnderTest {
 public:
  MainQueue& queue() { return loop_; }
  bool runUntil(const std::function<bool()>& condition) {
    bool held = condition();
    const Timer check = loop_.every(1ms, [&] {
      held = condition();
      if (held) loop_.quit();
    });
    const Timer limit = loop_.after(20s, [&] { loop_.quit(); });
    if (!held) loop_.run();
    return held;
  }

 private:
  RunLoop loop_;
};

class ManualMainQueueUnderTest {
 public:
  MainQueue& queue() { return queue_; }
  bool runUntil(const std::function<bool()>& condition) {
    queue_.advance(1s);
    return queue_.runUntil(condition);
  }

 private:
  ManualMainQueue queue_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(RunLoop, MainQueueContract, RunLoopUnderTest);
INSTANTIATE_TYPED_TEST_SUITE_P(ManualMainQueue, MainQueueContract, ManualMainQueueUnderTest);

TEST(ManualMainQueue, FiresTimersOfOneInstantInTheOrderInWhichTheyWereSet) {
  ManualMainQueue queue;
  std::string order;
  std::vector<Timer> timers;
  for (const char name : {'a', 'b', 'c'}) {
    timers.push_back(queue.after(1s, [&, name] { order += name; }));
  }
  queue.advance(999ms);
  EXPECT_EQ(order, "");
  queue.advance(1ms);
  EXPECT_EQ(order, "abc");
}

TEST(ManualMainQueue, SkipsThePeriodsThatSlowWorkMissed) {
  ManualMainQueue queue;
  std::vector<int> seconds;
  Timer timer;
  timer = queue.every(10s, [&] {
    seconds.push_back(static_cast<int>(queue.uptime() / 1s));
    if (seconds.size() == 1) queue.advance(25s);  // nothing fires inside: it runs just now
  });
  queue.advance(60s);
  EXPECT_EQ(seconds, (std::vector{10, 40, 50, 60}));
}

}  // namespace
}  // namespace vantrell
