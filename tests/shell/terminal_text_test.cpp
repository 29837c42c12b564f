#include "shell/terminal/terminal_text.h"

#include <gtest/gtest.h>

namespace vantrell::shell {
namespace {

TEST(TerminalText, CutsToWhatSurelyFits) {
  EXPECT_EQ(fitted("exactly", 7), "exactly");
  EXPECT_EQ(fitted("too long", 7), "too l…");
  EXPECT_EQ(fitted("日本語", 6), "日本語");
  EXPECT_EQ(fitted("日本語", 5), "日…");
  EXPECT_EQ(fitted("", 3), "");
}

}  // namespace
}  // namespace vantrell::shell
