#include "platform/text/text_finder.h"

#include <gtest/gtest.h>
#include <optional>
#include <vector>

#include "platform/text/text.h"

namespace vantrell::text {
namespace {

std::optional<std::string> found(std::string_view sought, std::string_view text,
                                 Finder::Case letterCase = Finder::Case::ignored) {
  const auto hit = Finder(sought, letterCase).find(text);
  if (!hit) return std::nullopt;
  EXPECT_LE(hit->offset + hit->length, text.size());
  return std::string(text.substr(hit->offset, hit->length));
}

TEST(TextFinder, AnswersWhatStandsInTheText) {
  struct Case {
    std::string_view sought, text;
    std::optional<std::string> hit;
  };
  const std::vector<Case> cases = {
      {"fixture", "The FIXTURE is odd", "FIXTURE"},
      {"THE", "the fixture", "the"},
      {"none", "the fixture", std::nullopt},
      {"", "the fixture", std::nullopt},
      {"x", "", std::nullopt},
      {"[`{@", "a[`{@b", "[`{@"},
      {"[", "{", std::nullopt},
      {"straße", "In der STRASSE", "STRASSE"},
      {"strasse", "… die Straße", "Straße"},
      {"ÄRGER", "viel ärger hier", "ärger"},
      {"ärger", "viel a\xCC\x88rger hier", "a\xCC\x88rger"},  // decomposed
      {"οδός", "Η ΟΔΌΣ", "ΟΔΌΣ"},
      {"привет", "а ПРИВЕТ б", "ПРИВЕТ"},
      {"日本", "東京、日本。", "日本"},
      {"after", "— ﬁrst, ﬀ and AFTER", "AFTER"},  // ligatures before it grow when folded
      {"i", "ﬁ", "ﬁ"},                            // within one character: that character
      {"kelvin", "\u212Aelvin", "\u212Aelvin"},
      {"x", "\xFF X", "X"},  // invalid
  };
  for (const auto& each : cases) {
    EXPECT_EQ(found(each.sought, each.text), each.hit) << each.sought << " in " << each.text;
  }
  EXPECT_TRUE(containsIgnoringCase("", "")) << "no words are in every text";
  EXPECT_TRUE(containsIgnoringCase("a\xFF", "A\uFFFD"));
}

TEST(TextFinder, CaseCanMatter) {
  EXPECT_EQ(found("Fix", "a fix, a Fix", Finder::Case::matters), "Fix");
  EXPECT_EQ(Finder("Fix", Finder::Case::matters).find("a fix, a Fix")->offset, 9U);
  EXPECT_EQ(found("É", "é", Finder::Case::matters), std::nullopt);
}

TEST(TextColumns, CountWhatATerminalShows) {
  const std::vector<std::pair<std::string_view, std::size_t>> cases = {
      {"", 0},       {"plain", 5}, {"é", 1}, {"e\xCC\x81", 1}, {"日本", 4},
      {"▸ Read", 6}, {"🚀", 2},    {"…", 1}, {"\xFF", 1},      {"⚠\uFE0F", 2},
  };
  for (const auto& [text, columns] : cases) EXPECT_EQ(columnCount(text), columns) << text;
  std::size_t columns = 3;
  EXPECT_EQ(firstColumns("日本語", columns), "日") << "half a character does not fit";
  EXPECT_EQ(columns, 2U);
  columns = 1;
  EXPECT_EQ(firstColumns("e\xCC\x81x", columns), "e\xCC\x81") << "marks stay with their letter";
}

}  // namespace
}  // namespace vantrell::text
