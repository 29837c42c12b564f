#include "engine/projects/project_context_service.h"

#include <gmock/gmock.h>

#include "platform/text/text.h"
#include "project/context_discovery.h"
#include "records/stores/orchestration_store.h"
#include "records/stores/project_context_store.h"
#include "support/engine_fixture.h"

namespace vantrell::tests {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

class ProjectContextService : public EngineFixture {
 public:
  ProjectContextService() {
    projects.contextSources = [this](std::string path, auto reply) {
      looks.emplace_back([path = std::move(path), reply = std::move(reply)] {
        reply(discoverContextSources(path));
      });
      if (!isSlow) answer();
    };
  }
  void answer() {
    for (const auto& each : std::exchange(looks, {})) each();
  }
  vantrell::ProjectContextService& context() { return *model->context; }
  std::string block(const ThreadExecutionKey& task) {
    std::string told = "no answer";
    context().projectContextPrompt(task, [&](std::string text) { told = std::move(text); });
    return told;
  }
  ProjectContextProfile stored(const Uuid& id) {
    OrchestrationStore records(folder.path(), [] { return Date(1); }, [](const auto&) {});
    return loadStoredProjectContext(records, id, Date(1));
  }
  void selectGeneral() {
    model->navigation.selectWorkspace(model->navigation.generalWorkspace()->id);
  }

  bool isSlow = false;
  std::vector<std::function<void()>> looks;
};

TEST_F(ProjectContextService, BlockIsEmptyOrHasABannerThatDoesNotCount) {
  start();
  EXPECT_EQ(block(key), "");
  EXPECT_EQ(block({Uuid::random(), Uuid::random()}), "");
  const std::string banner = "VANTRELL PROJECT CONTEXT\n";
  context().setProjectInstructions(std::string(20'000, 'x'), key.workspaceID);
  EXPECT_EQ(text::characterCount(block(key)), banner.size() + 18'000);
  EXPECT_THAT(block(key), ::testing::StartsWith(banner + "PROJECT INSTRUCTIONS\nxxx"));
}

TEST_F(ProjectContextService, InstructionsAreKeptTrimmedAndClearedByBlanks) {
  int snapshots = 0;
  start();
  const auto observation = model->changes.observe(
      [&](const ChangeBatch& batch) { snapshots += batch.has(topics::remoteSnapshot) ? 1 : 0; });
  main.advance(std::chrono::seconds(5));
  context().setProjectInstructions(" Test first.\n", key.workspaceID);
  main.runReady();
  EXPECT_EQ(context().projectInstructions(key.workspaceID), "Test first.");
  EXPECT_EQ(stored(key.workspaceID).instructions, "Test first.");
  EXPECT_EQ(iso8601(stored(key.workspaceID).updatedAt), iso8601(main.now()));
  selectGeneral();
  context().setProjectInstructions("Other.", key.workspaceID);
  main.runReady();
  EXPECT_EQ(context().projectContext().instructions, "") << "General is looked at";
  EXPECT_EQ(context().projectInstructions(key.workspaceID), "Other.");
  context().setProjectInstructions(" \n", key.workspaceID);
  main.runReady();
  EXPECT_EQ(stored(key.workspaceID).instructions, "");
  EXPECT_EQ(snapshots, 3);

  context().setProjectInstructions("General has none.", *model->selection.workspaceID());
  main.runReady();
  context().setProjectInstructions("Nor has this.", Uuid::random());
  main.runReady();
  EXPECT_EQ(context().projectInstructions(*model->selection.workspaceID()), "");
  EXPECT_EQ(snapshots, 3);
}

TEST_F(ProjectContextService, DecisionsAreAppendedWhereNeitherTextIsBlank) {
  start();
  context().addProjectDecision(" Store ", " SQLite ", key.workspaceID);
  context().addProjectDecision("Blank", " ", key.workspaceID);
  context().addProjectDecision("", "Blank", key.workspaceID);
  ASSERT_EQ(stored(key.workspaceID).decisions.size(), 1U);
  EXPECT_EQ(stored(key.workspaceID).decisions[0].title, "Store");
  EXPECT_EQ(block(key), "VANTRELL PROJECT CONTEXT\nPROJECT DECISIONS\n- Store: SQLite");
}

TEST_F(ProjectContextService, GuidanceIsReadAtEachSelectionAndForOthersAtEachPrompt) {
  start();
  folder.file("project/AGENTS.md", "Use tabs.");
  EXPECT_EQ(block(key), "") << "the project is selected: its files are read when that happens";
  selectGeneral();
  EXPECT_THAT(block(key), EndsWith("- AGENTS.md: Use tabs."));
  folder.file("project/AGENTS.md", "Use blanks.");
  EXPECT_THAT(block(key), EndsWith("- AGENTS.md: Use blanks."));
  model->navigation.selectThread(key.threadID, key.workspaceID);
  EXPECT_EQ(context().projectContext().summary(), "1 guidance file");
}

TEST_F(ProjectContextService, PromptWaitsForGuidanceThatIsBeingRead) {
  folder.file("project/AGENTS.md", "Use tabs.");
  isSlow = true;
  start();
  send("Go");
  EXPECT_TRUE(clients.empty());
  EXPECT_EQ(run().status, RunRecordStatus::starting);
  selectGeneral();
  answer();
  answer();  // for the project, which is not selected any more
  client().opens("s");
  EXPECT_THAT(client().prompts.at(0), HasSubstr("- AGENTS.md: Use tabs.\n\nRESPONSE STYLE"));
  EXPECT_THAT(context().projectContext().discoveredSources, ElementsAre())
      << "what was read for the project is not General's";

  client().finishes();
  model->navigation.selectThread(key.threadID, key.workspaceID);
  send("Again");
  app->selected().stopWorking();
  answer();
  EXPECT_EQ(run().status, RunRecordStatus::cancelled);
  EXPECT_EQ(client().prompts.size(), 1U);
}

TEST_F(ProjectContextService, UnreadableProfileIsKeptAsideAndAFailedSaveIsKnown) {
  start();
  std::vector<std::string> notices;
  const auto observation = model->changes.observe([&](const ChangeBatch& batch) {
    notices.insert(notices.end(), batch.notices.begin(), batch.notices.end());
  });
  const std::string file =
      folder / "Orchestration/contexts/" + text::lowercased(key.workspaceID.text()) + ".json";
  context().setProjectInstructions("First.", key.workspaceID);
  ASSERT_TRUE(files::writeAtomically(file, R"({"instructions":"no date"})"));
  context().load();
  EXPECT_EQ(context().projectContext().instructions, "");
  context().setProjectInstructions("Second.", key.workspaceID);
  main.runReady();
  EXPECT_EQ(notices.size(), 1U);
  EXPECT_EQ(stored(key.workspaceID).instructions, "Second.");
  EXPECT_EQ(context().saveFailure(), "");

  ASSERT_TRUE(files::remove(file));
  ASSERT_TRUE(files::createFolders(file));
  context().setProjectInstructions("Third.", key.workspaceID);
  EXPECT_EQ(context().projectContext().instructions, "Third.");
  EXPECT_NE(context().saveFailure(), "");
}

}  // namespace
}  // namespace vantrell::tests
