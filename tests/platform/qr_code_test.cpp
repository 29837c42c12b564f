// A code has the patterns by which readers find it, and the terminal's text has its modules.
#include "platform/terminal/qr_code.h"

#include <gtest/gtest.h>

#include "platform/text/text.h"

namespace vantrell {
namespace {

TEST(QrCodeTest, HoldsUpToTheLongestText) {
  EXPECT_EQ(QrCode::encode("vantrell")->size(), 21);
  const auto longest = QrCode::encode(std::string(2331, 'x'));
  ASSERT_TRUE(longest);
  EXPECT_EQ(longest->size(), 177);
  EXPECT_FALSE(QrCode::encode(std::string(2332, 'x')));
  EXPECT_FALSE(QrCode::encode(""));
  EXPECT_TRUE(QrCode::encode(std::string("a\0b", 3)));
}

TEST(QrCodeTest, HasItsFinderPatternsInThreeCorners) {
  const auto code = *QrCode::encode("vantrell://pair");
  const int far = code.size() - 7;
  const std::pair<int, int> corners[] = {{0, 0}, {far, 0}, {0, far}};
  for (const auto& [left, top] : corners) {
    for (int i = 0; i < 49; ++i) {
      const int x = i % 7;
      const int y = i / 7;
      const int ring = std::max(std::abs(x - 3), std::abs(y - 3));
      EXPECT_EQ(code.isDark(left + x, top + y), ring != 2) << x << ' ' << y;
    }
  }
  EXPECT_FALSE(code.isDark(-1, 0) || code.isDark(0, code.size()));
}

TEST(QrCodeTest, IsDrawnForATerminal) {
  const auto code = *QrCode::encode("vantrell://pair");
  for (const bool hasColours : {false, true}) {
    auto text = code.terminalText(hasColours);
    const std::string start = hasColours ? "\x1b[38;5;16;48;5;231m" : "";
    const std::string end = hasColours ? "\x1b[0m" : "";
    const auto lines = text::lines(text);
    const int side = code.size() + 2 * QrCode::border;
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(side + 1) / 2 + 1);  // and the end
    for (int line = 0; line < side / 2; ++line) {
      std::string expected = start;
      for (int x = 0; x < side; ++x) {
        const auto isDrawn = [&](int y) {
          return code.isDark(x - QrCode::border, y - QrCode::border) == hasColours;
        };
        const bool upper = isDrawn(2 * line);
        const bool lower = isDrawn(2 * line + 1);
        expected += upper ? (lower ? "█" : "▀") : lower ? "▄" : " ";
      }
      EXPECT_EQ(lines[static_cast<std::size_t>(line)], expected + end);
    }
  }
}

}  // namespace
}  // namespace vantrell
