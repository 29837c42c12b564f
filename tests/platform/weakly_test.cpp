#include "platform/queues/weakly.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>

namespace vantrell {
namespace {

struct Owner : std::enable_shared_from_this<Owner> {
  std::string heard;
};

TEST(Weakly, CallsAndKeepsTheOwnerOnlyWhileItLives) {
  auto owner = std::make_shared<Owner>();
  const std::function<void(std::string)> callback =
      weakly(owner.get(), [](Owner& self, const std::string& text) { self.heard += text; });
  EXPECT_EQ(owner.use_count(), 1) << "held weakly";
  callback("a");
  callback("b");
  EXPECT_EQ(owner->heard, "ab");
  owner.reset();
  callback("late");
}

}  // namespace
}  // namespace vantrell
