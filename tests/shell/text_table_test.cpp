#include "shell/terminal/text_table.h"

#include <gtest/gtest.h>

#include "platform/text/text.h"

namespace vantrell::shell {
namespace {

std::string tableIn(std::size_t columns) {
  TextTable table({{""},
                   {"ID"},
                   {.heading = "PROJECT", .least = 6, .leavesAt = 1},
                   {.heading = "TITLE", .least = 10},
                   {.heading = "WITH", .leavesAt = 2},
                   {.heading = "FOLDER", .least = 8, .cutsFront = true}});
  table.add({{""}, {"A1"}, {"engine"}, {"Find out why\nit fails"}, {"Kimi"}, {"/home/ada/engine"}});
  table.add({{""}, {"B2"}, {"website"}, {"日本語のタイトル"}, {""}, {"/web"}});
  return table.text(TerminalStyle::plain(), columns);
}

TEST(TextTable, AlignsAndLeavesOutWhatIsEmpty) {
  EXPECT_EQ(tableIn(100),
            "ID  PROJECT  TITLE                  WITH  FOLDER\n"
            "A1  engine   Find out why it fails  Kimi  /home/ada/engine\n"
            "B2  website  日本語のタイトル             /web\n");
}

TEST(TextTable, CutsBeforeItLeavesColumnsOut) {
  EXPECT_EQ(tableIn(46),
            "ID  PROJECT  TITLE          WITH  FOLDER\n"
            "A1  engine   Find out why…  Kimi  …/ada/engine\n"
            "B2  website  日本語のタイ…        /web\n");
}

TEST(TextTable, NoLineIsWiderThanTheTerminal) {
  for (std::size_t columns = 20; columns < 70; ++columns) {
    const std::string table = tableIn(columns);
    for (const auto line : text::lines(table)) {
      EXPECT_LE(text::columnCount(line), columns) << table;
      EXPECT_FALSE(line.ends_with(' ')) << table;
    }
  }
  EXPECT_TRUE(tableIn(30).starts_with("ID  TITLE")) << "the last to stay:\n" << tableIn(30);
}

TEST(TextTable, CutTextKeepsItsColumns) {
  struct Case {
    std::string_view text;
    std::size_t columns;
    bool cutsFront;
    std::string_view cut;
  };
  const std::vector<Case> cases = {
      {"fits", 4, false, "fits"},   {"one two", 5, false, "one…"}, {" blank", 4, false, " bl…"},
      {"one two", 4, true, "…two"}, {"日本語", 4, false, "日…"},   {"日本語", 4, true, "…語"},
      {"anything", 1, false, "…"},  {"anything", 0, false, ""},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(cutTo(each.text, each.columns, each.cutsFront), each.cut) << each.text;
  }
}

}  // namespace
}  // namespace vantrell::shell
