#include "shell/terminal/task_change.h"

#include <gtest/gtest.h>

namespace vantrell::shell {
namespace {

TEST(Confirmation, OnlyAYesOfAPersonOrTheOptionWillDo) {
  struct Case {
    std::optional<std::string> typed;
    bool agrees;
  };
  const std::vector<Case> cases = {
      {"y", true}, {" YES ", true}, {"", false}, {"n", false}, {"yesterday", false}, {{}, false},
  };
  for (const auto& each : cases) {
    std::string shown;
    const Person person{.isPresent = true,
                        .show = [&](std::string_view text) { shown += text; },
                        .readLine = [&] { return each.typed; }};
    EXPECT_EQ(confirmed({}, "Delete it?", person), each.agrees) << each.typed.value_or("(end)");
    EXPECT_TRUE(shown.starts_with("Delete it? [y/N] ")) << shown;
  }
  const Person nobody{};
  EXPECT_FALSE(confirmed({}, "Delete it?", nobody)) << "there is nobody to ask";
  CommandArguments arguments;
  arguments.given.push_back({"--yes", ""});
  EXPECT_EQ(confirmed(arguments, "Delete it?", nobody), true);
}

}  // namespace
}  // namespace vantrell::shell
