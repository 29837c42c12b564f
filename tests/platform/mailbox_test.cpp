#include "platform/queues/mailbox.h"

#include <gtest/gtest.h>
#include <thread>

#include "platform/queues/manual_main_queue.h"

namespace vantrell {
namespace {

class MailboxTest : public testing::Test {
 protected:
  void deliver(char name, std::size_t bytes = 0) {
    mailbox_->deliver([this, name] { order_ += name; }, bytes);
  }

  ManualMainQueue main_;
  std::shared_ptr<Mailbox> mailbox_ = std::make_shared<Mailbox>(main_);
  std::string order_;
};

TEST_F(MailboxTest, DeliversInOrderOnTheMainQueueInOneHop) {
  for (const char name : {'a', 'b', 'c'}) deliver(name);
  EXPECT_EQ(order_, "");
  main_.post([this] { order_ += '|'; });
  main_.runReady();
  EXPECT_EQ(order_, "abc|");
}

TEST_F(MailboxTest, HeldLettersArriveTogether) {
  {
    const Mailbox::Hold outer(*mailbox_);
    deliver('a');
    {
      const Mailbox::Hold inner(*mailbox_);
      deliver('b');
    }
    main_.runReady();
    EXPECT_EQ(order_, "");
    deliver('c');
  }
  main_.post([this] { order_ += '|'; });
  main_.runReady();
  EXPECT_EQ(order_, "abc|");
}

TEST_F(MailboxTest, HopThatWasUnderWayTakesOnlyWhatWasThereBeforeTheHold) {
  deliver('a');
  deliver('b');
  {
    const Mailbox::Hold hold(*mailbox_);
    deliver('c');
    main_.runReady();
    EXPECT_EQ(order_, "ab");
    main_.post([this] { order_ += '|'; });
    main_.runReady();
    deliver('d');
  }
  main_.post([this] { order_ += '|'; });
  main_.runReady();
  EXPECT_EQ(order_, "ab|cd|");
}

TEST_F(MailboxTest, SaysWhenItIsFullAndWhenItHasCaughtUp) {
  std::vector<bool> changes;
  mailbox_->whenFullChanges([&](bool isFull) { changes.push_back(isFull); });
  deliver('a', Mailbox::highWater);
  EXPECT_TRUE(changes.empty()) << "the bound itself is not above the bound";
  deliver('b', 1);
  deliver('c', 1);
  EXPECT_EQ(changes, std::vector{true});
  main_.runReady();
  EXPECT_EQ(changes, (std::vector{true, false}));
  deliver('d', 2 * Mailbox::highWater);
  EXPECT_EQ(changes, (std::vector{true, false, true}));
  main_.runReady();
  EXPECT_EQ(changes, (std::vector{true, false, true, false}));
  EXPECT_EQ(order_, "abcd");
}

TEST_F(MailboxTest, PairsOfOneHoldAreNeverTornApart) {
  // One letter of each pair is delivered while the main queue drains as fast as it can.
  constexpr int pairs = 20'000;
  bool isOver = false;
  int torn = 0;
  int between = 0;
  std::function<void()> busybody = [&] {
    ++between;
    if (!isOver) main_.post(busybody);
  };
  main_.post(busybody);
  std::jthread sender([&] {
    for (int number = 0; number < pairs; ++number) {
      const Mailbox::Hold hold(*mailbox_);
      auto at = std::make_shared<int>();
      mailbox_->deliver([&, at] { *at = between; });
      mailbox_->deliver([&, at, number] {
        if (*at != between) ++torn;
        if (number == pairs - 1) isOver = true;
      });
    }
  });
  EXPECT_TRUE(main_.runUntil([&] { return isOver; }));
  sender.join();
  main_.runReady();
  EXPECT_EQ(torn, 0);
}

}  // namespace
}  // namespace vantrell
