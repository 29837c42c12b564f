#include "shell/terminal/full_access_confirmation.h"

#include <gtest/gtest.h>

#include "runtimes/catalog/permission_mode_texts.h"

namespace vantrell::shell {
namespace {

TEST(FullAccessConfirmation, TakesTheWordsOfAPerson) {
  struct Case {
    std::optional<std::string> line;
    bool confirmed;
  };
  const std::vector<Case> cases = {
      {"Enable Full Access", true},
      {"  Enable Full Access ", true},
      {"enable full access", false},
      {"yes", false},
      {"Cancel", false},
      {"", false},
      {std::nullopt, false},
  };
  for (const auto& each : cases) {
    std::string shown;
    const Person person{.isPresent = true,
                        .show = [&](std::string_view text) { shown += text; },
                        .readLine = [&] { return each.line; }};
    EXPECT_EQ(confirmFullAccess(person).has_value(), each.confirmed) << each.line.value_or("end");
    EXPECT_TRUE(shown.contains(FullAccessConfirmation::title));
    EXPECT_TRUE(shown.contains(FullAccessConfirmation::text));
  }
}

TEST(FullAccessConfirmation, IsRefusedWhereNobodyIsToBeAsked) {
  const Person nobody{.isPresent = false,
                      .show = [](std::string_view) { FAIL() << "there is nobody to show it to"; },
                      .readLine = [] { return std::optional<std::string>("Enable Full Access"); }};
  EXPECT_FALSE(confirmFullAccess(nobody));
}

}  // namespace
}  // namespace vantrell::shell
