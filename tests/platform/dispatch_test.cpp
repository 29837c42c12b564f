#include "platform/queues/dispatch.h"

#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <thread>

namespace vantrell {
namespace {

TEST(BackgroundPool, FinishesWhatWasPostedAndWhatThatPostsBeforeItGoes) {
  std::atomic<int> done = 0;
  {
    BackgroundPool pool(3);
    for (int number = 0; number < 100; ++number) {
      pool.post([&] {
        pool.post([&] { ++done; });
        ++done;
      });
    }
  }
  EXPECT_EQ(done, 200);
}

TEST(SerialQueue, RunsOnePieceAtATimeInTheOrderOfPosting) {
  std::vector<int> seen;  // unprotected on purpose
  int next = 0;
  {
    BackgroundPool pool(4);
    const SerialQueue queue(pool, "test");
    const SerialQueue same = queue;
    for (int number = 0; number < 20000; ++number) {
      (number % 2 == 0 ? queue : same).post([&, number] {
        EXPECT_EQ(next++, number);
        seen.push_back(number);
      });
    }
  }
  EXPECT_EQ(seen.size(), 20000U);
}

TEST(SerialQueue, DropsWhatIsPostedAfterThePoolIsGone) {
  auto pool = std::make_unique<BackgroundPool>(1);
  const SerialQueue queue(*pool, "orphan");
  auto held = std::make_shared<int>(0);
  pool.reset();
  queue.post([held] { ADD_FAILURE(); });
  EXPECT_EQ(held.use_count(), 1);
}

TEST(SerialQueue, KeepsNothingThatIsPostedWhileThePoolGoes) {
  auto held = std::make_shared<int>(0);
  for (int round = 0; round < 300; ++round) {
    auto pool = std::make_unique<BackgroundPool>(1);
    std::atomic<bool> posting = false;
    std::atomic<bool> enough = false;
    std::thread other([&, queue = SerialQueue(*pool, "orphan")] {
      while (!enough) {
        // Work that holds its own queue, as most does.
        queue.post([held, queue] {});
        posting = true;
        std::this_thread::yield();
      }
    });
    while (!posting) std::this_thread::yield();
    pool.reset();
    enough = true;
    other.join();
    ASSERT_EQ(held.use_count(), 1) << "in round " << round;
  }
}

}  // namespace
}  // namespace vantrell
