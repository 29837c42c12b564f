#include "engine/projects/task_safety.h"

#include "support/engine_fixture.h"
#include "support/git_repository.h"
#include "support/held_executor.h"

using namespace std::chrono_literals;

namespace vantrell::tests {

class TaskSafetyTest : public EngineFixture {
 protected:
  TaskSafetyTest() {
    backgroundExecutor = &background;
    supportFolder = folder / "support";
    projects.git = [this](const auto&, auto, const auto& reply) {
      ++refreshes;
      reply({});
    };
  }
  void startInRepository() {
    repository.file("a.txt", "one\n");
    repository.commit();
    start();
    model->operations->addWorkspace(repository.path());
    key = *model->selection.key();
    main.runReady();
  }
  std::string content() const { return TemporaryFolder::contentOf(repository / "a.txt"); }
  std::optional<std::string> error() const { return app->selected().errorMessage(); }
  void finishTurn() {
    client().finishes();
    main.runReady();
  }

  GitRepository repository;
  HeldExecutor background;
  int refreshes = 0;
};

TEST_F(TaskSafetyTest, EachPromptTakesACheckpointThatLeadsBack) {
  startInRepository();
  work("first prompt, which is longer than the forty-eight characters of a label");
  repository.file("a.txt", "of the agent\n");
  finishTurn();
  ASSERT_EQ(thread().checkpoints.size(), 1);
  const auto checkpoint = thread().checkpoints.front();
  EXPECT_EQ(checkpoint.label, "Before: first prompt, which is longer than the forty-eig");
  EXPECT_EQ(checkpoint.kind, WorkspaceCheckpointKind::automatic);
  EXPECT_EQ(checkpoint.conversationEntryCount, 1) << "the prompt stands already";
  EXPECT_EQ(checkpoint.sourceMessageID, thread().entries[0].id);
  model->tree.appendSystemEntry("later", key);
  // A playback has added what the runtime said before the prompt: the id tells the place.
  Transcript played = thread().entries;
  std::vector<ChatEntry> entries(played.begin(), played.end());
  entries.insert(entries.begin(), ChatEntry{.id = "lead", .text = "Before"});
  model->tree.replaceTranscript(Transcript(entries), key);

  const int before = refreshes;
  app->selected().restoreCheckpoint(checkpoint);
  EXPECT_TRUE(model->safety->taskSafetyWorking());
  main.runReady();
  EXPECT_FALSE(model->safety->taskSafetyWorking());
  EXPECT_EQ(error(), std::nullopt);
  EXPECT_EQ(content(), "one\n");
  EXPECT_EQ(thread().entries.size(), 2);
  EXPECT_EQ(thread().entries.back().id, checkpoint.sourceMessageID);
  EXPECT_EQ(thread().checkpoints.front().label, "Before rewind");
  EXPECT_EQ(refreshes, before + 1);
  EXPECT_EQ(saved().back().thread(key.threadID)->checkpoints.size(), 2);

  // And forward again. The conversation is shorter than it was then, and stays so.
  app->selected().restoreCheckpoint(thread().checkpoints.front());
  main.runReady();
  EXPECT_EQ(content(), "of the agent\n");
  EXPECT_EQ(thread().entries.size(), 2);
}

TEST_F(TaskSafetyTest, RestoresNothingWhileTheAgentWorksOrWithoutARecoveryCheckpoint) {
  startInRepository();
  work("prompt");
  const auto checkpoint = thread().checkpoints.front();
  app->selected().restoreCheckpoint(checkpoint);
  EXPECT_FALSE(model->safety->taskSafetyWorking());
  EXPECT_EQ(error(), "Stop this task before you restore one of its checkpoints.");
  const auto first = key;
  model->operations->newThread(key.workspaceID);
  app->selected().restoreCheckpoint(checkpoint);
  EXPECT_EQ(error(), "Could not restore the checkpoint: Another task is at work in this folder.");
  // The same folder by another name, and one that contains it.
  const TemporaryFolder links;
  std::filesystem::create_directory_symlink(repository.path(), links / "link");
  for (const auto& [project, isShared] :
       {std::pair(links / "link", true), std::pair(repository.folder("part"), true),
        std::pair(links.folder("other"), false)}) {
    model->operations->addWorkspace(project);
    model->executions.clearError();
    app->selected().restoreCheckpoint(checkpoint);
    EXPECT_EQ(error().value_or("").contains("Another task"), isShared) << project;
    main.runReady();
  }
  model->navigation.selectThread(first.threadID, first.workspaceID);
  finishTurn();
  repository.file("a.txt", "precious\n");
  std::filesystem::rename(repository / ".git", repository / "git");
  app->selected().restoreCheckpoint(checkpoint);
  main.runReady();
  EXPECT_EQ(error(), "Could not restore the checkpoint: This project is not a Git repository.");
  EXPECT_EQ(content(), "precious\n");
  EXPECT_EQ(thread().checkpoints.size(), 1);
}

TEST_F(TaskSafetyTest, KeepsTheNewestFiftyInTheListAndAllArchives) {
  startInRepository();
  for (int i = 1; i <= 51; ++i) {
    app->selected().createCheckpoint(std::to_string(i));
    main.runReady();
  }
  ASSERT_EQ(thread().checkpoints.size(), 50);
  EXPECT_EQ(thread().checkpoints.front().label, "51");
  EXPECT_EQ(thread().checkpoints.back().label, "2");
  const auto archives = std::filesystem::path(thread().checkpoints.front().archivePath);
  EXPECT_EQ(folder.names(archives.parent_path().native().substr(folder.path().size() + 1)).size(),
            51);
}

TEST_F(TaskSafetyTest, SaysOnceWhyAPromptHadNoCheckpointAndNothingWithoutARepository) {
  start();
  work("prompt");
  EXPECT_EQ(texts(), std::vector<std::string>{"prompt"});
  app->selected().createCheckpoint("Manual checkpoint");
  main.runReady();
  EXPECT_EQ(error(), "Could not create a checkpoint: This project is not a Git repository.");

  model->operations->addWorkspace(repository.path());  // without a commit
  key = *model->selection.key();
  for (const auto* prompt : {"one", "two"}) {
    work(prompt);
    finishTurn();
  }
  EXPECT_EQ(std::ranges::count(thread().entries, ChatEntryKind::system, &ChatEntry::kind), 1);
  EXPECT_EQ(client().prompts.size(), 2) << "the prompts went on";
}

TEST_F(TaskSafetyTest, MovesATaskIntoAWorktreeAndNeverBack) {
  startInRepository();
  work("prompt");
  finishTurn();
  repository.file("a.txt", "not committed\n");
  app->selected().setTaskWorkspaceMode(TaskWorkspaceMode::isolated);
  main.runReady();
  EXPECT_EQ(error(), std::nullopt);
  EXPECT_EQ(client().stops, 1);
  EXPECT_EQ(thread().providerSessionIDs->size(), 0u)
      << "Kimi's sessions stay in the folder that they were begun in";
  const std::string path = *model->tree.executionPath(key);
  EXPECT_EQ(path, thread().isolatedWorkspacePath);
  EXPECT_EQ(TemporaryFolder::contentOf(path + "/a.txt"), "not committed\n");

  work("in the worktree");
  EXPECT_EQ(contexts.back().workspacePath, path);
  finishTurn();
  app->selected().setTaskWorkspaceMode(TaskWorkspaceMode::shared);
  EXPECT_EQ(thread().workspaceMode, TaskWorkspaceMode::isolated);
  EXPECT_EQ(error(),
            "This task stays isolated so its changes cannot be lost. Open a new shared task, or "
            "merge the worktree from Terminal after reviewing its changes.");
  std::filesystem::remove_all(path);
  EXPECT_EQ(model->tree.executionPath(key), repository.path());
  app->selected().restoreCheckpoint(thread().checkpoints.back());
  main.runReady();
  EXPECT_EQ(content(), "one\n");
  EXPECT_EQ(model->safety->notes(key).back(),
            "The task's worktree is gone: " + repository.path() + " was restored.");
}

TEST_F(TaskSafetyTest, DoesOnePieceOfWorkAtATimeInAFolder) {
  startInRepository();
  background.isHeld = true;
  app->selected().createCheckpoint("Manual checkpoint");
  send("prompt");
  EXPECT_EQ(background.held.size(), 1);
  std::exchange(background.held, {}).front()();
  EXPECT_TRUE(clients.empty());
  main.runReady();
  ASSERT_EQ(background.held.size(), 1) << "that of the prompt";
  std::exchange(background.held, {}).front()();
  main.runReady();
  EXPECT_EQ(clients.size(), 1);
}

TEST_F(TaskSafetyTest, HoldsNoPromptUpForLongBehindOtherWork) {
  startInRepository();
  background.isHeld = true;
  app->selected().createCheckpoint("Manual checkpoint");  // has no limit
  send("prompt");
  main.advance(TaskSafetyService::automaticTime - 1s);
  EXPECT_TRUE(clients.empty());
  main.advance(1s);
  ASSERT_EQ(clients.size(), 1);
  EXPECT_EQ(texts().back(),
            "No checkpoint was taken before this prompt. Other work in this folder took too long.");
  background.isHeld = false;
  std::exchange(background.held, {}).front()();
  main.runReady();
  ASSERT_EQ(thread().checkpoints.size(), 1) << "none of what the agent is changing";
  EXPECT_EQ(thread().checkpoints[0].label, "Manual checkpoint");
}

TEST_F(TaskSafetyTest, LetsAPromptWaitForARestoreAndKeepsIt) {
  startInRepository();
  work("prompt");
  repository.file("a.txt", "of the agent\n");
  finishTurn();
  const auto before = clients.size();
  const auto prompts = client().prompts.size();
  background.isHeld = true;
  app->selected().restoreCheckpoint(thread().checkpoints.front());
  send("go on");
  main.runReady();
  ASSERT_EQ(background.held.size(), 1) << "the recovery checkpoint";
  std::exchange(background.held, {}).front()();
  main.runReady();
  ASSERT_EQ(background.held.size(), 1);
  std::exchange(background.held, {}).front()();
  EXPECT_EQ(content(), "one\n") << "the restore goes before the checkpoint of the prompt";
  main.runReady();
  EXPECT_EQ(clients.size(), before);
  EXPECT_EQ(client().prompts.size(), prompts) << "the agent waits";
  EXPECT_EQ(texts(), (std::vector<std::string>{"prompt", "go on"}));
  std::exchange(background.held, {}).front()();
  main.runReady();
  ASSERT_EQ(clients.size(), before + 1) << "the old session knows the turn that was undone";
  EXPECT_EQ(client().existingSession, std::nullopt);
  client().opens("fresh");
  main.runReady();
  EXPECT_EQ(client().prompts.size(), 1);
}

}  // namespace vantrell::tests
