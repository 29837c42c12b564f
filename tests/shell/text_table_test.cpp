#include "shell/terminal/text_table.h"

#include <gtest/gtest.h>

#include "platform/text/text.h"
#include "shell/terminal/task_words.h"

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

TEST(TaskWords, TimesReadAsPeopleSayThem) {
  const std::vector<std::pair<double, std::string>> cases = {
      {-5, "just now"},           {59, "just now"},          {60, "1 min ago"},
      {3599, "59 min ago"},       {3600, "1 h ago"},         {86399, "23 h ago"},
      {86400, "1 day ago"},       {3 * 86400, "3 days ago"}, {14 * 86400, "2 weeks ago"},
      {56 * 86400, "2000-11-06"},
  };
  for (const auto& [seconds, words] : cases) EXPECT_EQ(ago(Date(-seconds), Date(0)), words);
  EXPECT_EQ(duration(Seconds(0.4)), "0 s");
  EXPECT_EQ(duration(Seconds(185)), "3 min 5 s");
  EXPECT_EQ(duration(Seconds(7800)), "2 h 10 min");
}

}  // namespace
}  // namespace vantrell::shell
