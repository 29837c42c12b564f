#include "shell/terminal/text_table.h"

#include <gtest/gtest.h>

#include "platform/text/text.h"

namespace vantrell::shell {
namespace {

std::string tableIn(std::size_t columns) {
  TextTable table({{""}, {"ID"}, {"TITLE", 10}, {"FOLDER", 8, true}, {"WITH"}, {"CHANGED"}});
  table.add({{""}, {"A1"}, {"Find out why\nit fails"}, {"/home/ada/engine"}, {"Kimi"}, {"now"}});
  table.add({{""}, {"B2"}, {"日本語のタイトル"}, {"/web"}, {""}, {"3 h ago"}});
  return table.text(TerminalStyle::plain(), columns);
}

TEST(TextTable, AlignsAndLeavesOutWhatIsEmpty) {
  EXPECT_EQ(tableIn(100),
            "ID  TITLE                  FOLDER            WITH  CHANGED\n"
            "A1  Find out why it fails  /home/ada/engine  Kimi  now\n"
            "B2  日本語のタイトル       /web                    3 h ago\n");
}

TEST(TextTable, CutsBeforeItLeavesColumnsOut) {
  EXPECT_EQ(tableIn(46),
            "ID  TITLE         FOLDER         WITH  CHANGED\n"
            "A1  Find out wh…  …e/ada/engine  Kimi  now\n"
            "B2  日本語のタ…   /web                 3 h ago\n");
  EXPECT_TRUE(tableIn(35).starts_with("ID  TITLE")) << tableIn(35);
  EXPECT_FALSE(tableIn(35).contains("CHANGED")) << tableIn(35);
  EXPECT_TRUE(tableIn(35).contains("WITH")) << tableIn(35);
}

TEST(TextTable, NoLineIsWiderThanTheTerminal) {
  for (std::size_t columns = 20; columns < 70; ++columns) {
    const std::string table = tableIn(columns);
    for (const auto line : text::lines(table)) {
      EXPECT_LE(text::columnCount(line), columns) << table;
      EXPECT_FALSE(line.ends_with(' ')) << table;
    }
  }
}

}  // namespace
}  // namespace vantrell::shell
