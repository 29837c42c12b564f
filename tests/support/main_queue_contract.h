// What every body of MainQueue promises. A test program instantiates it for the bodies it has:
//
//     INSTANTIATE_TYPED_TEST_SUITE_P(RunLoop, MainQueueContract, RunLoopUnderTest);
//
// The type gives queue(), an optional discard() that destroys the queue, and runUntil(condition),
// which lets the queue work, and time pass, until the condition holds, for at most a few seconds.
#pragma once

#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

#include "platform/queues/dispatch.h"

namespace vantrell {

template <typename Body>
class MainQueueContract : public testing::Test {
 protected:
  MainQueue& queue() { return body_->queue(); }
  void expectSoon(const std::function<bool()>& condition) {
    EXPECT_TRUE(body_->runUntil(condition));
  }
  void destroyQueue() { body_.reset(); }

 private:
  std::unique_ptr<Body> body_ = std::make_unique<Body>();
};
TYPED_TEST_SUITE_P(MainQueueContract);

using namespace std::chrono_literals;

TYPED_TEST_P(MainQueueContract, RunsWorkPostedFromWorkAfterWhatWasThereBefore) {
  std::string order;
  const auto held = std::make_shared<int>(0);
  this->queue().post([&, held, owned = std::make_unique<int>(7)] {
    order += 'a';
    this->queue().post([&] { order += 'c'; });
    order += '.';
  });
  this->queue().post([&] { order += 'b'; });
  EXPECT_EQ(order, "") << "not at once";
  this->expectSoon([&] { return order.size() == 4 && held.use_count() == 1; });
  EXPECT_EQ(order, "a.bc");
}

TYPED_TEST_P(MainQueueContract, KeepsTheOrderOfEachPostingThreadAndLosesNothing) {
  constexpr int threads = 4;
  constexpr int each = 5000;
  std::vector<std::vector<int>> seen(threads);
  int total = 0;
  std::vector<std::jthread> posters;
  for (int thread = 0; thread < threads; ++thread) {
    posters.emplace_back([&, thread] {
      for (int number = 0; number < each; ++number) {
        this->queue().post([&, thread, number] {
          seen[static_cast<std::size_t>(thread)].push_back(number);
          ++total;
        });
      }
    });
  }
  this->expectSoon([&] { return total == threads * each; });
  for (const auto& numbers : seen) EXPECT_TRUE(std::ranges::is_sorted(numbers));
}

TYPED_TEST_P(MainQueueContract, FiresTimersInTheOrderOfTheirInstantsAndNeverEarly) {
  const Duration start = this->queue().uptime();
  std::string order;
  std::vector<Duration> late;
  std::vector<Timer> timers;
  const auto set = [&](char name, Duration delay) {
    timers.push_back(this->queue().after(delay, [&, name, delay] {
      order += name;
      late.push_back(this->queue().uptime() - start - delay);
    }));
  };
  set('d', 31ms);
  set('b', 11ms);
  set('a', -1s);  // an instant that has passed is due now
  set('c', 21ms);
  this->expectSoon([&] { return order.size() == 4; });
  EXPECT_EQ(order, "abcd");
  for (const auto by : late) EXPECT_GE(by, 0ns);
}

TYPED_TEST_P(MainQueueContract, TimerIsActiveUntilItFiredOrWasCancelled) {
  bool activeInside = true;
  bool fired = false;
  Timer timer;
  EXPECT_FALSE(timer.isActive());
  timer = this->queue().after(1ms, [&] {
    activeInside = timer.isActive();
    fired = true;
  });
  EXPECT_TRUE(timer.isActive());
  this->expectSoon([&] { return fired; });
  EXPECT_FALSE(activeInside);
  EXPECT_FALSE(timer.isActive());
  timer = this->queue().after(1h, [] {});
  timer.cancel();
  EXPECT_FALSE(timer.isActive());
}

TYPED_TEST_P(MainQueueContract, CancelledDestroyedAndReplacedTimersDoNotFire) {
  std::string fired;
  auto held = std::make_shared<int>(0);
  Timer cancelled = this->queue().after(2ms, [&, held] { fired += 'c'; });
  {
    const Timer destroyed = this->queue().after(2ms, [&, held] { fired += 'd'; });
  }
  Timer replaced = this->queue().after(2ms, [&, held] { fired += 'r'; });
  replaced = this->queue().after(3ms, [&] { fired += 'n'; });
  cancelled.cancel();
  EXPECT_EQ(held.use_count(), 1) << "a cancelled timer lets go of its work";
  bool end = false;
  const Timer later = this->queue().after(10ms, [&] { end = true; });
  this->expectSoon([&] { return end; });
  EXPECT_EQ(fired, "n");
}

TYPED_TEST_P(MainQueueContract, TimerCancelledByAnotherOneDueWithItDoesNotFire) {
  // All are overdue when the queue comes to them, so that each is due at that same moment.
  std::vector<Timer> timers(8);
  int fired = 0;
  for (auto& timer : timers) {
    timer = this->queue().after(1ms, [&] {
      ++fired;
      for (auto& other : timers) other.cancel();
    });
  }
  bool end = false;
  const Timer later = this->queue().after(10ms, [&] { end = true; });
  const Duration due = this->queue().uptime() + 5ms;
  this->queue().post([&, due] {
    // Real clocks pass the instant here; a virtual one makes them due together anyway.
    const auto giveUp = std::chrono::steady_clock::now() + 6ms;
    while (this->queue().uptime() < due && std::chrono::steady_clock::now() < giveUp) {
    }
  });
  this->expectSoon([&] { return end; });
  EXPECT_EQ(fired, 1);
}

TYPED_TEST_P(MainQueueContract, TimerThatOwnsItselfMayEndItselfWhileItRuns) {
  struct Owner {
    Timer timer;
    int fired = 0;
  };
  auto owner = std::make_shared<Owner>();
  std::weak_ptr<Owner> watched = owner;
  bool survived = false;
  owner->timer = this->queue().every(1ms, [&survived, owner]() mutable {
    auto kept = owner;
    kept->timer.cancel();  // destroys this very function's last registration
    owner.reset();
    survived = ++kept->fired == 1;
  });
  owner.reset();
  this->expectSoon([&] { return survived; });
  EXPECT_TRUE(watched.expired());
}

TYPED_TEST_P(MainQueueContract, RepeatingTimerComesEveryPeriodUntilCancelled) {
  const Duration start = this->queue().uptime();
  std::vector<Duration> instants;
  Timer timer = this->queue().every(5ms, [&] {
    instants.push_back(this->queue().uptime() - start);
    if (instants.size() == 3) timer.cancel();
  });
  this->expectSoon([&] { return instants.size() == 3; });
  bool end = false;
  const Timer later = this->queue().after(20ms, [&] { end = true; });
  this->expectSoon([&] { return end; });
  ASSERT_EQ(instants.size(), 3U);
  EXPECT_GE(instants[0], 5ms);
  EXPECT_GE(instants[2], 15ms);
  EXPECT_FALSE(timer.isActive());
}

TYPED_TEST_P(MainQueueContract, UptimeAndClockGoOn) {
  // Each date is read between two uptimes: a busy machine may let time pass between the calls.
  struct Reading {
    explicit Reading(MainQueue& queue)
        : before(queue.uptime()), date(queue.now()), after(queue.uptime()) {}
    Duration before;
    Date date;
    Duration after;
  };
  const Reading first(this->queue());
  bool fired = false;
  const Timer timer = this->queue().after(20ms, [&] { fired = true; });
  this->expectSoon([&] { return fired; });
  const Reading second(this->queue());
  EXPECT_GE(second.before - first.after, 20ms);
  EXPECT_GE((second.date - first.date).count(),
            Seconds(second.before - first.after).count() - 0.01);
  EXPECT_LE((second.date - first.date).count(),
            Seconds(second.after - first.before).count() + 0.01);
}

TYPED_TEST_P(MainQueueContract, DroppedWorkIsReleasedAndMayCancelTimersAndPost) {
  struct Busybody {
    MainQueue& queue;
    Timer timer;
    ~Busybody() {
      timer.cancel();
      queue.post([] { ADD_FAILURE() << "ran on a destroyed queue"; });
    }
  };
  auto held = std::make_shared<int>(0);
  for (int number = 0; number < 3; ++number) {
    auto busybody = std::make_shared<Busybody>(
        this->queue(), this->queue().after(1h, [held] { ADD_FAILURE() << "fired"; }));
    this->queue().post([held, busybody] { ADD_FAILURE() << "ran"; });
  }
  Timer survivor = this->queue().every(1h, [held] {});
  this->destroyQueue();
  EXPECT_EQ(held.use_count(), 1);
  EXPECT_FALSE(survivor.isActive());
  survivor.cancel();
}

REGISTER_TYPED_TEST_SUITE_P(MainQueueContract, RunsWorkPostedFromWorkAfterWhatWasThereBefore,
                            KeepsTheOrderOfEachPostingThreadAndLosesNothing,
                            FiresTimersInTheOrderOfTheirInstantsAndNeverEarly,
                            TimerIsActiveUntilItFiredOrWasCancelled,
                            CancelledDestroyedAndReplacedTimersDoNotFire,
                            TimerCancelledByAnotherOneDueWithItDoesNotFire,
                            TimerThatOwnsItselfMayEndItselfWhileItRuns,
                            RepeatingTimerComesEveryPeriodUntilCancelled, UptimeAndClockGoOn,
                            DroppedWorkIsReleasedAndMayCancelTimersAndPost);

}  // namespace vantrell
