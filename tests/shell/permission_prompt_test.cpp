#include "shell/terminal/permission_prompt.h"

#include <gtest/gtest.h>

namespace vantrell::shell {
namespace {

PermissionRequest request() {
  return {.id = 7,
          .title = "Run\nls",
          .detail = "one\ntwo",
          .options = {{"yes", "Allow once", "allow_once"},
                      {"1", "Odd \x1b[31m name", "allow_always"},
                      {"no", "Reject", "reject_once"}}};
}

TEST(PermissionPrompt, ShowsTitleDetailAndNumberedOptions) {
  EXPECT_EQ(permissionLines(request(), TerminalStyle::plain()),
            (std::vector<std::string>{"? Run ls", "    one", "    two", "  1  Allow once",
                                      "  2  Odd ␛[31m name", "  3  Reject"}));
}

TEST(PermissionPrompt, BoundsALongDetail) {
  auto asked = request();
  asked.detail.clear();
  for (int line = 0; line < 100; ++line) asked.detail += "line\n";
  const auto lines = permissionLines(asked, TerminalStyle::plain());
  EXPECT_EQ(lines.size(), 1U + 20U + 1U + 3U);
  EXPECT_EQ(lines[21], "    … 80 more lines");
}

TEST(PermissionPrompt, ReadsANumberOrAnId) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"1", "yes"},  // the number that is seen, not the id "1"
      {" 2 ", "1"},
      {"3", "no"},
      {"no", "no"},
      {"yes\r", "yes"}};
  const auto asked = request();
  for (const auto& [line, id] : cases) {
    const auto answer = readAnswer(asked, line);
    ASSERT_TRUE(answer) << line;
    EXPECT_EQ((*answer)->id, id);
  }
  for (const auto* line : {"", "0", "4", "-1", "1x", "maybe", "99999999999999999999"}) {
    const auto answer = readAnswer(asked, line);
    ASSERT_FALSE(answer) << line;
    EXPECT_TRUE(answer.error().contains("from 1 to 3")) << answer.error();
  }
}

TEST(PermissionPrompt, TellsWhatIsAnAnswerAfterAnEmptyLine) {
  auto asked = request();
  EXPECT_EQ(readAnswer(asked, " \n").error(), "Answer with a number from 1 to 3.");
  asked.options.resize(1);
  EXPECT_EQ(readAnswer(asked, "").error(), "Answer with 1.");
}

TEST(PermissionPrompt, FindsTheFirstOptionOfAKind) {
  const auto asked = request();
  EXPECT_EQ(optionOfKind(asked, "allow_always")->id, "1");
  EXPECT_EQ(optionOfKind(asked, "reject_always"), nullptr);
}

}  // namespace
}  // namespace vantrell::shell
