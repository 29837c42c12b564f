#include <gmock/gmock.h>

#include "support/engine_fixture.h"

namespace vantrell::tests {
namespace {

using ::testing::ElementsAre;

class GitSnapshotService : public EngineFixture {
 public:
  struct Reading {
    std::string path;
    std::stop_token stop;
    std::function<void(GitWorkspaceSnapshot)> reply;
  };

  GitSnapshotService() {
    projects.git = [this](const std::string& path, const std::stop_token& stop, const auto& reply) {
      readings.push_back({path, stop, reply});
    };
    start();
    observation = model->changes.observe([this](const ChangeBatch& batch) {
      if (batch.has(topics::gitSnapshot)) {
        announced.push_back(model->git->gitSnapshot().branch);
      }
    });
  }

  static GitWorkspaceSnapshot on(std::string branch) {
    return {.isRepository = true, .branch = std::move(branch)};
  }
  std::vector<std::string> paths() {
    std::vector<std::string> all;
    for (const auto& each : readings) all.push_back(each.path);
    return all;
  }

  std::vector<Reading> readings;
  std::vector<std::string> announced;
  Changes::Observation observation;
};

TEST_F(GitSnapshotService, ReadsWhatIsLookedAt) {
  const std::string general = model->navigation.generalWorkspace()->path;
  EXPECT_THAT(paths(), ElementsAre(general, folder / "project")) << "the start, then the project";
  EXPECT_EQ(model->git->gitSnapshot(), GitWorkspaceSnapshot::unavailable());
  readings.back().reply(on("main"));
  main.runReady();
  work("Go");
  client().finishes();
  EXPECT_EQ(readings.size(), 3U) << "a task that ended has changed something";
  EXPECT_EQ(model->git->gitSnapshot().branch, "main") << "until the new one is there";

  model->tree.updateThread(key, [&](ChatThread& thread) {
    thread.workspaceMode = TaskWorkspaceMode::isolated;
    thread.isolatedWorkspacePath = folder.folder("worktree");
  });
  model->git->refreshGitSnapshot();
  EXPECT_EQ(readings.back().path, folder / "worktree");

  model->selection.select(std::nullopt, std::nullopt);
  model->git->refreshGitSnapshot();
  EXPECT_EQ(readings.size(), 4U);
  EXPECT_EQ(model->git->gitSnapshot(), GitWorkspaceSnapshot::unavailable());
  main.runReady();
  EXPECT_THAT(announced, ElementsAre("main", ""));
}

TEST_F(GitSnapshotService, ANewerReadingEndsTheOlderOne) {
  model->git->refreshGitSnapshot();
  ASSERT_EQ(readings.size(), 3U);
  EXPECT_TRUE(readings[1].stop.stop_requested());
  EXPECT_FALSE(readings[2].stop.stop_requested());
  readings[2].reply(on("new"));
  readings[1].reply(on("old"));
  main.runReady();
  EXPECT_THAT(announced, ElementsAre("new"));
  stop();
  EXPECT_TRUE(readings[2].stop.stop_requested()) << "nobody is left to hear of it";
}

TEST_F(GitSnapshotService, DropsWhatBelongsToAnotherFolder) {
  model->navigation.selectWorkspace(model->navigation.generalWorkspace()->id);
  readings[1].reply(on("project"));
  EXPECT_TRUE(announced.empty());

  // Another task takes the place of one that has its own worktree.
  model->navigation.selectWorkspace(key.workspaceID);
  auto& operations = *model->operations;
  const std::function<void(const ThreadExecutionKey&)> changes[] = {
      [&](const auto& shown) { operations.newThread(shown.workspaceID); },
      [&](const auto& shown) {
        EXPECT_TRUE(operations.setThreadArchived(shown.threadID, shown.workspaceID, true));
      },
      [&](const auto& shown) {
        EXPECT_TRUE(operations.deleteThread(shown.threadID, shown.workspaceID));
      },
  };
  for (const auto& change : changes) {
    operations.newThread(key.workspaceID);
    const ThreadExecutionKey shown = *model->selection.key();
    model->tree.updateThread(shown, [&](ChatThread& thread) {
      thread.workspaceMode = TaskWorkspaceMode::isolated;
      thread.isolatedWorkspacePath = folder.folder("worktree");
    });
    model->git->refreshGitSnapshot();
    const Reading ofWorktree = readings.back();
    announced.clear();
    change(shown);
    ASSERT_NE(model->selection.key(), shown);
    EXPECT_EQ(readings.back().path, folder / "project");
    ofWorktree.reply(on("worktree"));
    EXPECT_TRUE(announced.empty());
    readings.back().reply(on("main"));
    main.runReady();
    EXPECT_THAT(announced, ElementsAre("main"));
  }
}

}  // namespace
}  // namespace vantrell::tests
