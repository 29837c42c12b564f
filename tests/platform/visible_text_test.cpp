#include "platform/text/visible_text.h"

#include <gtest/gtest.h>

#include "platform/text/text.h"

namespace vantrell::text {
namespace {

TEST(VisibleText, NothingThatDrivesATerminalGetsThrough) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"plain\ttext\n", "plain\ttext\n"},
      {"für 日本 👍🏽", "für 日本 👍🏽"},
      {"\x1b[2J\x1b]0;title\x07", "␛[2J␛]0;title␇"},
      {std::string("a\0b", 3), "a␀b"},
      {"a\x7f", "a␡"},
      {"one\r\ntwo", "one\ntwo"},
      {"hidden\rshown", "hidden␍shown"},
      {"back\b\b", "back␈␈"},
      {"\xC2\x9B\x32J", "<U+009B>2J"},  // the one-character form of ESC [
      {"\xE2\x80\xAE"
       "evil",
       "<U+202E>evil"},  // right-to-left override
      {"\xE2\x81\xA6", "<U+2066>"},
      {"\xE2\x80\x8F!\xD8\x9C", "<U+200F>!<U+061C>"},
      {"\xE2\x80\xA8", "<U+2028>"},
      {"\x9B\xFF", "\xEF\xBF\xBD\xEF\xBF\xBD"},
  };
  for (const auto& [given, expected] : cases) EXPECT_EQ(sanitized(given), expected);
}

TEST(VisibleText, NoByteSequenceLeavesAControlCharacter) {
  std::string all;
  for (int first = 0; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      all += static_cast<char>(first);
      all += static_cast<char>(second);
    }
  }
  const std::string clean = sanitized(all);
  EXPECT_TRUE(isValidUtf8(clean));
  EXPECT_FALSE(std::ranges::any_of(clean, [](char byte) {
    return byte == '\x7f' || (byte >= 0 && byte < ' ' && byte != '\n' && byte != '\t');
  }));
  for (int control = 0x80; control < 0xA0; ++control) {
    EXPECT_EQ(clean.find(std::string{'\xC2', static_cast<char>(control)}), std::string::npos);
  }
}

TEST(VisibleText, OneLineStaysOneLine) {
  EXPECT_EQ(onOneLine("  rm -rf\n\t/x\x1b "), "rm -rf  /x␛");
}

TEST(VisibleText, CountsTheLinesThatItLeavesOut) {
  using Lines = std::vector<std::string>;
  EXPECT_EQ(boundedLines("", 3), Lines{});
  EXPECT_EQ(boundedLines("a\nb\n\n", 3), (Lines{"a", "b"}));
  EXPECT_EQ(boundedLines("a\nb\nc\nd", 3), (Lines{"a", "b", "c", "d"}));
  EXPECT_EQ(boundedLines("a\nb\nc\nd\ne", 3), (Lines{"a", "b", "c", "… 2 more lines"}));
}

TEST(VisibleText, CutTextKeepsItsColumns) {
  struct Case {
    std::string_view text;
    std::size_t columns;
    bool cutsFront;
    std::string_view cut;
  };
  const std::vector<Case> cases = {
      {"fits", 4, false, "fits"},  {"one two", 5, false, "one…"}, {"one two", 4, true, "…two"},
      {"日本語", 4, false, "日…"}, {"日本語", 4, true, "…語"},    {"anything", 0, false, ""},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(cutTo(each.text, each.columns, each.cutsFront), each.cut) << each.text;
  }
}

}  // namespace
}  // namespace vantrell::text
