#include "runtimes/claude/claude_permissions.h"

#include <gtest/gtest.h>

#include "support/claude_frames.h"

namespace vantrell {
namespace {

namespace frames = tests::claude_frames;

PermissionRequest ask(ClaudePermissions& permissions, const char* request,
                      const std::string& id = "r") {
  return permissions.ask(id, json::parseObject(request).value());
}

TEST(ClaudePermissions, ShowWhatTheToolWouldDo) {
  struct Case {
    const char* request;
    const char* title;
    const char* detail;
  };
  const char* nothingToSee = "Claude Code needs permission to continue.";
  for (const Case& each : {
           Case{R"({"display_name":"D","title":"T","tool_name":"N","input":{"b":1,"a":[]}})", "D",
                "{\n  \"a\": [],\n  \"b\": 1\n}"},
           Case{R"({"display_name":5,"tool_name":"N","description":"d"})", "N", "d"},
           Case{R"({"input":[1],"description":"d"})", "Use a tool", "d"},
           Case{R"({"input":{}})", "Use a tool", nothingToSee},
       }) {
    ClaudePermissions permissions;
    const PermissionRequest shown = ask(permissions, each.request);
    EXPECT_EQ(shown.title, each.title) << each.request;
    EXPECT_EQ(shown.detail, each.detail) << each.request;
  }
}

TEST(ClaudePermissions, OnlyOneOptionAllows) {
  for (const char* option : {"claude-deny", "", "allow_once", "Claude-allow-once", "reject"}) {
    ClaudePermissions permissions;
    const auto id = ask(permissions, "{}").id;
    EXPECT_TRUE(json::write(std::get<JsonObject>(*permissions.answer(id, option)))
                    .contains(R"("behavior":"deny")"))
        << option;
  }
}

TEST(ClaudePermissions, QuestionToTheUserIsAskedWithItsChoicesOneByOne) {
  const char* request = R"({"tool_name":"AskUserQuestion","input":{"questions":[
      {"question":"Which colour?","header":"Colour","options":[
        {"label":"Red","description":"Warm"},{"label":"Blue","description":"Cold"}]},
      {"question":"How many?","header":"Count","options":[{"label":"One"},{"label":"Two"}]}]}})";
  ClaudePermissions permissions;
  const PermissionRequest first = ask(permissions, request);
  EXPECT_EQ(first.title, "Which colour?");
  EXPECT_EQ(first.detail, "Red: Warm\nBlue: Cold");
  ASSERT_EQ(first.options.size(), 3U);
  EXPECT_EQ(first.options[1].name, "Blue");
  EXPECT_EQ(first.options[2].kind, "reject_once");
  const auto next = permissions.answer(first.id, first.options[1].id);
  ASSERT_TRUE(next && std::holds_alternative<PermissionRequest>(*next));
  const auto& second = std::get<PermissionRequest>(*next);
  EXPECT_EQ(second.title, "How many?");
  const auto answer = permissions.answer(second.id, second.options[0].id);
  ASSERT_TRUE(answer && std::holds_alternative<JsonObject>(*answer));
  EXPECT_TRUE(json::write(std::get<JsonObject>(*answer))
                  .contains(R"("answers":{"Which colour?":"Blue","How many?":"One"})"));

  const PermissionRequest refused = ask(permissions, request);
  const auto denial = permissions.answer(refused.id, "claude-deny");
  EXPECT_TRUE(json::write(std::get<JsonObject>(*denial)).contains(R"("behavior":"deny")"));
}

}  // namespace
}  // namespace vantrell
