#include "engine/tasks/external_session_importer.h"

#include <gmock/gmock.h>

#include "engine/tasks/workspace_operations.h"
#include "support/engine_fixture.h"

namespace vantrell::tests {
namespace {

using enum AgentProvider;
using Activity = ExternalSessionActivity;

class ExternalSessionImporterTest : public EngineFixture {
 protected:
  ExternalProviderSession session(const std::string& id, const std::string& path) {
    return {.provider = codex,
            .sessionID = id,
            .title = "Title",
            .workspacePath = path,
            .createdAt = main.now(),
            .updatedAt = main.now(),
            .activity = Activity::recent,
            .sourceLabel = "Codex"};
  }
  std::pair<std::size_t, std::size_t> import(std::vector<ExternalProviderSession> sessions) {
    const auto summary = app->operations().importSessions(std::move(sessions));
    return {summary.importedCount, summary.updatedCount};
  }
  using Counts = std::pair<std::size_t, std::size_t>;
};

TEST_F(ExternalSessionImporterTest, SessionBecomesOneConversationOfItsProject) {
  start();
  const auto project = app->tree().workspace(key.workspaceID)->path;
  auto active = session("a", project + "/");
  active.activity = Activity::active;
  auto other = session("b", "/elsewhere/site");
  other.updatedAt = main.now() + Seconds(5);
  EXPECT_EQ(import({active, other}), Counts(2, 0));
  EXPECT_EQ(import({active, other}), Counts(0, 0));

  const auto& first = app->tree().workspace(key.workspaceID)->threads.front();
  EXPECT_EQ(first.title, "Title");
  EXPECT_EQ(first.sessionID(codex), "a");
  EXPECT_EQ(first.updatedAt, active.updatedAt);
  EXPECT_EQ(first.entries[0].text,
            "Imported from Codex. Open this task to continue the provider's existing session; "
            "vantrell will attach only when you use it. It may still be active in another app, so "
            "avoid sending from both apps at the same time.");
  const auto& made = app->tree().workspaces().back();
  EXPECT_EQ(made.name, "site");
  ASSERT_EQ(made.threads.size(), 2u);
  EXPECT_EQ(made.threads[1].title, "New task");
  EXPECT_FALSE(made.threads[0].entries[0].text.contains("still be active"));
}

TEST_F(ExternalSessionImporterTest, OnlyNewsCountsAndIsSaved) {
  start();
  const auto path = app->tree().workspace(key.workspaceID)->path;
  auto known = session("a", path);
  import({known});
  model->tree.flush();
  const auto stored = saved();
  const auto imported = [&] {
    return *app->tree().workspace(key.workspaceID)->threads[0].importedSession;
  };
  const auto firstSeen = imported().importedAt;

  main.advance(std::chrono::hours(1));
  EXPECT_EQ(import({known}), Counts(0, 0));
  EXPECT_EQ(imported().lastSeenAt, main.now());
  EXPECT_EQ(saved(), stored);
  known.activity = Activity::active;
  EXPECT_EQ(import({known}), Counts(0, 1));
  EXPECT_EQ(imported().importedAt, firstSeen);
  known.updatedAt = main.now();
  EXPECT_EQ(import({known}), Counts(0, 1));
  EXPECT_EQ(app->tree().workspace(key.workspaceID)->threads[0].updatedAt, main.now());
  known.updatedAt = known.createdAt;
  EXPECT_EQ(import({known}), Counts(0, 0)) << "an older time changes nothing";
}

TEST_F(ExternalSessionImporterTest, ConversationOfTheSessionIsFoundAndKeepsItsProvider) {
  start();
  model->tree.updateThread(key, [](ChatThread& thread) {
    thread.sessionId = "old form";
    thread.lastProvider = kimi;
  });
  auto found = session("old form", "/nowhere");
  found.provider = grok;
  EXPECT_EQ(import({found}), Counts(0, 1));
  EXPECT_EQ(thread().lastProvider, kimi);
  EXPECT_EQ(thread().importedSession->provider, grok);
  EXPECT_EQ(app->tree().workspace(key.workspaceID)->threads.size(), 1u);
}

TEST(ExternalSessionTitles, AreOnOneLineAndNotLong) {
  using ExternalSessionImporter::cleanedTitle;
  const std::pair<std::string, std::string> cases[] = {
      {"  fix\n\tthe \u2003 bug ", "fix the bug"},
      {" \n\u2028 ", "Codex session"},
      {"", "Codex session"},
      {std::string(200, 'x'), std::string(88, 'x')},
      {"caf\u00e9 \U0001F469\u200D\U0001F680", "caf\u00e9 \U0001F469\u200D\U0001F680"}};
  for (const auto& [title, expected] : cases) EXPECT_EQ(cleanedTitle(title, codex), expected);
}

}  // namespace
}  // namespace vantrell::tests
