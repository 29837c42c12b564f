#include "shell/program_fixture.h"

namespace vantrell::tests {
namespace {

/// Routing, hand-off and project context as a user meets them.
class RoutingCommands : public TerminalProgram {
 protected:
  using Words = std::vector<std::string>;

  RoutingCommands() { usePracticeAgents(); }
  static bool shows(const std::shared_ptr<Record>& record, std::string_view text) {
    return record->output.contains(text);
  }
};

TEST_F(RoutingCommands, ExhaustedAllowanceHandsTheRunOnUntilNobodyIsLeft) {
  does({"context", "instructions", "SAY:said by the next one"});
  EXPECT_EQ(code(does({"context", "instructions"})), 2) << "the folder is no project yet";
  EXPECT_EQ(code(does({"projects", "add", "."})), 0);
  EXPECT_EQ(does({"context", "instructions", "SAY:said by the next one"})->output,
            "project: the instructions are set.\n");
  EXPECT_TRUE(shows(does({"route"}), "The next turn goes to Grok: Preferred by this route."));

  const auto done = does({"run", "--json", "FAIL:usage limit reached"});
  const std::string task = threadOf(done);
  const auto shown = does({"show", task});
  EXPECT_TRUE(shows(shown, "Grok allowance reached. Automatically handed this task to Kimi."))
      << shown->output << done->error;
  EXPECT_TRUE(shows(shown, "Error from Kimi: usage limit reached"))
      << "its prompt holds the first one's, and then nobody is left: " << shown->output;

  const auto fixed = does({"run", "--provider", "kimi", "FAIL:usage limit reached"});
  EXPECT_EQ(code(fixed), 1);
  EXPECT_FALSE(shows(fixed, "handed")) << fixed->output;
}

TEST_F(RoutingCommands, TaskGoesWhereItIsHandedAndElseStaysWithItsLastProvider) {
  const std::string task = threadOf(does({"run", "--json", "SAY:one"}));
  EXPECT_TRUE(shows(does({"handoff", "--next", task, "kimi"}), "Kimi · Next message only."));
  const auto other = does({"run", "--task", task, "SAY:two"});
  EXPECT_TRUE(shows(other, "Switched this task from Grok to Kimi")) << other->output;
  const auto same = does({"run", "--task", task, "SAY:three"});
  EXPECT_FALSE(shows(same, "Switched")) << same->output;
  does({"handoff", task, "kimi"});
  does({"settings", "reset", "kimi-path"});
  const auto elsewhere = does({"route"});
  EXPECT_TRUE(shows(elsewhere, "goes to Grok. Kimi")) << elsewhere->output;
  const auto missing = does({"handoff", task, "codex"});
  EXPECT_EQ(code(missing), 1);
  EXPECT_TRUE(missing->error.contains("is not installed")) << missing->error;

  EXPECT_EQ(code(does({"route", "grok"})), 0);
  EXPECT_TRUE(shows(does({"run", "--task", task, "SAY:four"}), "from Kimi to Grok"));
  EXPECT_EQ(code(does({"route", "claude"})), 0);
  const auto nobody = does({"run", "SAY:five"});
  EXPECT_EQ(code(nobody), 2);
  EXPECT_TRUE(nobody->error.contains("vantrell route automatic")) << nobody->error;
  EXPECT_EQ(code(does({"route", "nowhere"})), 2);
}

TEST_F(RoutingCommands, ContextIsShownAsAnAgentGetsIt) {
  does({"projects", "add", "."});
  home.file("project/AGENTS.md", "Use tabs.");
  const auto added = events(does({"context", "decisions", "add", "Store", "SQLite", "--json"}));
  ASSERT_EQ(added.size(), 1U);
  EXPECT_EQ(json::textOr(added[0], "summary", ""), "1 decision · 1 guidance file")
      << "a change tells of the guidance as a look does";
  EXPECT_EQ(does({"context", "block"})->output,
            "VANTRELL PROJECT CONTEXT\nPROJECT DECISIONS\n- Store: SQLite\n\n"
            "DISCOVERED PROJECT GUIDANCE\n- AGENTS.md: Use tabs.\n");
  const auto all = events(does({"context", "--json"}));
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(json::textOr(all[0], "summary", ""), "1 decision · 1 guidance file");
  const auto general = does({"context", "instructions", "x", "--project", "General"});
  EXPECT_EQ(code(general), 1);
  EXPECT_TRUE(general->error.contains("General has none")) << general->error;
  EXPECT_EQ(code(does({"context", "decisions", "add", " ", "x"})), 2);
}

}  // namespace
}  // namespace vantrell::tests
