#include "shell/terminal/terminal_text.h"

#include <gtest/gtest.h>

namespace vantrell::shell {
namespace {

TEST(TerminalText, CutTextKeepsItsColumns) {
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
}  // namespace vantrell::shell
