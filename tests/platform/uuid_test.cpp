#include "platform/values/uuid.h"

#include <gtest/gtest.h>
#include <unordered_set>

namespace vantrell {
namespace {

TEST(Uuid, ReadsEitherCaseAndShowsUpperCase) {
  const auto id = Uuid::parse("0198c1f0-7d1e-4c3c-9f7b-2f7a4d0b6aFF");
  ASSERT_TRUE(id);
  EXPECT_EQ(id->text(), "0198C1F0-7D1E-4C3C-9F7B-2F7A4D0B6AFF");
  EXPECT_EQ(Uuid::parse(id->text()), id);
  EXPECT_EQ(Uuid().text(), "00000000-0000-0000-0000-000000000000");
}

TEST(Uuid, RandomOnesAreOfVersionFourAndDiffer) {
  std::unordered_set<Uuid> seen;
  for (int i = 0; i < 10'000; ++i) {
    const Uuid id = Uuid::random();
    const std::string text = id.text();
    ASSERT_EQ(text[14], '4') << text;
    ASSERT_NE(std::string("89AB").find(text[19]), std::string::npos) << text;
    ASSERT_TRUE(seen.insert(id).second) << text;
  }
}

}  // namespace
}  // namespace vantrell
