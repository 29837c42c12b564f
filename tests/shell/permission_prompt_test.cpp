#include "shell/terminal/permission_prompt.h"

#include <gtest/gtest.h>

namespace vantrell::shell {
namespace {

TEST(PermissionPrompt, ShowsTitleBoundedDetailAndNumberedOptions) {
  PermissionRequest asked{
      .id = 7,
      .title = "Run\nls",
      .detail = "one\ntwo",
      .options = {{"yes", "Allow once", "allow_once"}, {"1", "Odd \x1b[31m name", "allow_always"}}};
  EXPECT_EQ(permissionLines(asked, TerminalStyle::plain()),
            (std::vector<std::string>{"? Run ls", "    one", "    two", "  1  Allow once",
                                      "  2  Odd ␛[31m name"}));
  asked.detail.clear();
  for (int line = 0; line < 100; ++line) asked.detail += "line\n";
  const auto lines = permissionLines(asked, TerminalStyle::plain());
  EXPECT_EQ(lines.size(), 1U + 20U + 1U + 2U);
  EXPECT_EQ(lines[21], "    … 80 more lines");
}

}  // namespace
}  // namespace vantrell::shell
