#include "engine/tasks/task_branches.h"

#include <gmock/gmock.h>

#include "support/engine_fixture.h"
#include "support/git_repository.h"
#include "support/held_executor.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace vantrell::tests {

class TaskBranchesTest : public EngineFixture {
 protected:
  TaskBranchesTest() {
    backgroundExecutor = &background;
    supportFolder = folder / "support";
    others = {AgentProvider::codex, AgentProvider::claude};
  }
  void startInRepository() {
    repository.file("a.txt", "one\n");
    repository.commit();
    start();
    model->operations->addWorkspace(repository.path());
    key = *model->selection.key();
    main.runReady();
  }
  /// A conversation of two turns: u1 (with a file), a1, u2, a2.
  void converse() {
    const auto add = [this](const std::string& id, ChatEntryKind kind) {
      ChatEntry entry;
      entry.id = id;
      entry.kind = kind;
      entry.text = "text of " + id;
      if (id == "u1") entry.attachments.push_back({.displayName = "b.txt", .path = "/b.txt"});
      model->tree.appendEntry(std::move(entry), key);
    };
    add("u1", ChatEntryKind::user);
    add("a1", ChatEntryKind::assistant);
    add("u2", ChatEntryKind::user);
    add("a2", ChatEntryKind::assistant);
    model->tree.updateThread(key, [](ChatThread& thread) {
      thread.title = "Work";
      thread.lastProvider = AgentProvider::kimi;
      thread.preferredProvider = AgentProvider::kimi;
      thread.providerModelIDs = ChatThread::PerProvider{{"kimi", "k2"}};
      thread.providerEfforts = ChatThread::PerProvider{{"kimi", "high"}};
      thread.providerSessionIDs = ChatThread::PerProvider{{"kimi", "session"}};
      thread.draftText = "draft";
      thread.queuedPrompts.resize(1);
      thread.checkpoints.resize(1);
      thread.runs.resize(1);
      thread.runs[0].status = RunRecordStatus::completed;
    });
    main.runReady();
  }
  std::vector<std::string> ids(const ChatThread& thread) {
    std::vector<std::string> all;
    for (const auto& entry : thread.entries) all.push_back(entry.id);
    return all;
  }
  const std::vector<ChatThread>& threads() {
    return model->tree.workspace(key.workspaceID)->threads;
  }
  const ChatThread& selected() { return *model->tree.thread(*model->selection.key()); }
  std::optional<std::string> error() const { return app->selected().errorMessage(); }

  GitRepository repository;
  HeldExecutor background;
};

TEST_F(TaskBranchesTest, ForkCopiesEntriesAndChoicesAndNothingThatIsBoundToTheSource) {
  const struct {
    std::optional<std::string> through;
    std::vector<std::string> expected;
  } cases[] = {
      {std::nullopt, {"u1", "a1", "u2", "a2"}},
      {"a2", {"u1", "a1", "u2", "a2"}},
      {"a1", {"u1", "a1"}},
      {"no such entry", {"u1", "a1", "u2", "a2"}},
  };
  start();
  converse();
  const ChatThread source = thread();
  for (const auto& each : cases) {
    const auto fork = model->branches->forkThread(key, each.through);
    ASSERT_TRUE(fork);
    ASSERT_EQ(threads().front().id, fork->threadID) << "in front of the others";
    EXPECT_EQ(ids(threads().front()), each.expected) << each.through.value_or("all");
  }
  ChatThread expected = ChatThread::make("Work — fork", main.now());
  expected.id = threads().front().id;
  expected.entries = source.entries;
  expected.lastProvider = source.lastProvider;
  expected.preferredProvider = source.preferredProvider;
  expected.providerModelIDs = source.providerModelIDs;
  expected.providerEfforts = source.providerEfforts;
  expected.checkpoints = source.checkpoints;
  EXPECT_EQ(threads().front(), expected);
  EXPECT_EQ(thread(), source);
  EXPECT_EQ(model->selection.key(), key);
  EXPECT_EQ(saved()[1].threads.front().entries.size(), 4u);
  EXPECT_FALSE(model->branches->forkThread({key.workspaceID, Uuid::random()}, {}));
}

TEST_F(TaskBranchesTest, ForkEndsTheToolsThatItCopies) {
  start();
  model->tree.appendEntry({.id = "t", .kind = ChatEntryKind::tool, .status = "in_progress"}, key);
  const auto fork = model->branches->forkThread(key, {});
  EXPECT_EQ(model->tree.thread(*fork)->entries[0].status, "failed");
  EXPECT_EQ(thread().entries[0].status, "in_progress");
}

TEST_F(TaskBranchesTest, SelectedForkIsReadyToBeTypedIn) {
  start();
  converse();
  std::vector<ThreadExecutionKey> wanted;
  const auto observation = model->changes.observe([&](const ChangeBatch& batch) {
    for (const auto& [at, changes] : batch.conversations) {
      if (changes.composerWanted) wanted.push_back(at);
    }
  });
  app->selected().forkThread({});
  main.runReady();
  EXPECT_NE(model->selection.key(), key);
  EXPECT_THAT(wanted, ElementsAre(*model->selection.key()));
}

TEST_F(TaskBranchesTest, BranchTakesThePlaceOfThePromptBeforeTheEntry) {
  const struct {
    std::string from, prompt;
    std::optional<AgentProvider> provider;
    std::vector<std::string> before;  // entries of the branch before its prompt
    std::size_t attachments = 0;
    bool isMade = true;
  } cases[] = {
      {"u2", " Again ", std::nullopt, {"u1", "a1"}},
      {"a2", "Again", AgentProvider::codex, {"u1", "a1"}},
      {"a1", "Again", std::nullopt, {}, 1},
      {"u1", "Again", std::nullopt, {}, 1},
      {"u2", " \n", std::nullopt, {}, 0, false},
      {"nowhere", "Again", std::nullopt, {}, 0, false},
      {"s0", "Again", std::nullopt, {}, 0, false},
  };
  startInRepository();
  converse();
  for (const auto& each : cases) {
    SCOPED_TRACE(each.from + ": " + each.prompt);
    model->navigation.selectThread(key.threadID, key.workspaceID);
    if (each.from == "s0") {  // with no prompt before it
      Transcript entries({{.id = "s0", .kind = ChatEntryKind::system}});
      model->tree.replaceTranscript(std::move(entries), key);
    }
    const auto count = threads().size();
    const ChatThread source = thread();
    app->selected().branchAndSend(each.from, each.prompt, each.provider);
    EXPECT_EQ(threads().size(), count + (each.isMade ? 1 : 0));
    if (!each.isMade) continue;
    EXPECT_EQ(selected().title, "Work — branch");
    EXPECT_EQ(ids(selected()), each.before) << "the prompt waits for the worktree";
    main.runReady();
    EXPECT_EQ(thread(), source);
    const ChatThread& branch = selected();
    // The word of a switch may stand behind it.
    ASSERT_GT(branch.entries.size(), each.before.size());
    const ChatEntry& sent = branch.entries[each.before.size()];
    EXPECT_EQ(sent.text, "Again");
    EXPECT_EQ(sent.attachments.size(), each.attachments);
    EXPECT_EQ(branch.preferredProvider, each.provider.value_or(AgentProvider::kimi));
    EXPECT_EQ(branch.providerModelIDs, source.providerModelIDs);
    EXPECT_EQ(branch.providerEfforts, source.providerEfforts);
    EXPECT_EQ(branch.lastProvider, source.lastProvider);
    EXPECT_EQ(branch.workspaceMode, TaskWorkspaceMode::isolated);
    EXPECT_EQ(contexts.back().workspacePath, branch.isolatedWorkspacePath);
    EXPECT_EQ(clients.back()->provider(), each.provider.value_or(AgentProvider::kimi));
    EXPECT_EQ(clients.back()->existingSession, std::nullopt);
    EXPECT_EQ(TemporaryFolder::contentOf(*branch.isolatedWorkspacePath + "/a.txt"), "one\n");
  }
}

TEST_F(TaskBranchesTest, RetryIsABranchWithTheLatestPromptAndItsFiles) {
  start();
  converse();
  model->tree.updateEntry("u2", key, [](ChatEntry& entry) { entry.attachments.resize(1); });
  app->selected().retry();
  main.runReady();
  EXPECT_THAT(ids(selected()), ElementsAre("u1", "a1", selected().entries.back().id));
  EXPECT_EQ(selected().entries.back().text, "text of u2");
  EXPECT_EQ(selected().entries.back().attachments.size(), 1u);
  EXPECT_EQ(selected().workspaceMode, TaskWorkspaceMode::shared) << "no repository here";
  EXPECT_EQ(contexts.back().workspacePath, model->tree.workspace(key.workspaceID)->path);
  EXPECT_EQ(model->branches->whyShared({key.workspaceID, selected().id}), "This project is not a Git repository.");
}

TEST_F(TaskBranchesTest, ABranchWithoutAWorktreeSaysWhy) {
  startInRepository();
  converse();
  std::filesystem::rename(repository / ".git/HEAD", repository / ".git/kept");
  repository.file(".git/HEAD", "ref: refs/heads/unborn\n");
  app->selected().branchAndSend("u2", "Again");
  main.runReady();
  const auto& entries = selected().entries;
  // Behind it and the prompt: why there is no checkpoint, either.
  EXPECT_EQ(entries[entries.size() - 3].kind, ChatEntryKind::system);
  EXPECT_EQ(entries[entries.size() - 3].text,
            "This branch works in the project's own folder: The repository has no commit yet that "
            "a worktree could start from. Commit once first.");
  EXPECT_EQ(entries[entries.size() - 2].text, "Again");
}

TEST_F(TaskBranchesTest, WhatHappensWhileTheWorktreeIsMade) {
  enum What { deleted, stopped, typed, ended, drafted, moved, removed };
  startInRepository();
  for (const auto what : {deleted, stopped, typed, ended, drafted, moved, removed}) {
    SCOPED_TRACE(what);
    model->operations->newThread(key.workspaceID);
    key = *model->selection.key();
    converse();
    clients.clear();
    background.isHeld = true;
    app->selected().branchAndSend("u2", "Again");
    main.runReady();
    const auto branch = *model->selection.key();
    EXPECT_TRUE(model->branches->isPreparing(branch));
    if (what == deleted) model->operations->deleteThread(branch.threadID, branch.workspaceID);
    if (what == removed) model->operations->removeWorkspace(branch.workspaceID);
    const Uuid general = model->navigation.generalWorkspace()->id;
    if (what == moved) model->operations->moveThread(branch.threadID, branch.workspaceID, general);
    if (what == stopped) app->selected().stopWorking();
    if (what == drafted) {
      model->operations->saveComposerDraft("Newer", {}, branch.threadID, branch.workspaceID);
    }
    if (what == ended || what == drafted) app->endAllWork();
    if (what == typed) send("Typed");
    background.release();
    main.runReady();
    EXPECT_FALSE(model->branches->isPreparing(branch));
    const ChatThread* made = model->tree.thread(branch);
    EXPECT_EQ(made == nullptr, what == deleted || what == moved || what == removed);
    if (what == moved) {
      const ChatThread* there = model->tree.thread({general, branch.threadID});
      ASSERT_TRUE(there);
      EXPECT_EQ(there->draftText, "Again");
      EXPECT_EQ(there->workspaceMode, TaskWorkspaceMode::shared);
    }
    EXPECT_EQ(clients.size(), what == typed ? 1u : 0u);
    if (what == stopped || what == ended) {
      EXPECT_EQ(made->draftText, "Again");
    }
    if (what == drafted) {
      EXPECT_EQ(made->draftText, "Newer");
      ASSERT_EQ(made->queuedPrompts.size(), 1u);
      EXPECT_EQ(made->queuedPrompts[0].text, "Again");
    }
    if (what == typed) {
      EXPECT_EQ(made->entries.back().text, "Again");
      ASSERT_EQ(made->queuedPrompts.size(), 1u) << "it waits behind the branch's own";
      EXPECT_EQ(made->queuedPrompts[0].text, "Typed");
      EXPECT_EQ(contexts.back().workspacePath, made->isolatedWorkspacePath);
    }
  }
}

TEST_F(TaskBranchesTest, ComparisonRunsBothAtOnceInWorktreesOfTheirOwn) {
  startInRepository();
  converse();
  model->tree.updateThread(key, [](ChatThread& thread) { thread.title = "Work — fork"; });
  const ChatThread source = thread();
  using enum AgentProvider;
  app->selected().compareNextPrompt(" Which? ", {grok, codex, codex, claude, kimi});
  ASSERT_EQ(threads().size(), 3u);
  const ThreadExecutionKey first = *model->selection.key();
  main.runReady();
  ASSERT_EQ(clients.size(), 2u) << "both at the same time";
  EXPECT_EQ(clients[0]->provider(), codex);
  EXPECT_EQ(clients[1]->provider(), claude);
  EXPECT_EQ(threads()[1].id, first.threadID);
  EXPECT_EQ(threads()[1].title, "Work · Codex");
  EXPECT_EQ(threads()[0].title, "Work · Claude");
  EXPECT_TRUE(threads()[0].comparisonGroupID);
  EXPECT_EQ(threads()[0].comparisonGroupID, threads()[1].comparisonGroupID);
  for (std::size_t i : {0u, 1u}) {
    const ChatThread& fork = threads()[i];
    EXPECT_EQ(fork.preferredProvider, clients[1 - i]->provider());
    EXPECT_EQ(fork.workspaceMode, TaskWorkspaceMode::isolated);
    EXPECT_EQ(contexts[1 - i].workspacePath, fork.isolatedWorkspacePath);
    EXPECT_EQ(fork.entries.size(), 6u) << "four, the prompt, the word of the switch";
    EXPECT_EQ(fork.entries[4].text, "Which?");
  }
  EXPECT_NE(threads()[0].isolatedWorkspacePath, threads()[1].isolatedWorkspacePath);
  EXPECT_EQ(thread(), source);
}

TEST_F(TaskBranchesTest, ComparisonWithoutARepositoryRunsNothing) {
  start();
  converse();
  app->selected().compareNextPrompt("Which?", {AgentProvider::codex, AgentProvider::claude});
  main.runReady();
  EXPECT_THAT(clients, IsEmpty());
  for (const auto& fork : {threads()[0], threads()[1]}) {
    EXPECT_EQ(fork.entries.back().kind, ChatEntryKind::system);
    EXPECT_EQ(fork.entries.back().text,
              "Could not create a safe comparison worktree: This project is not a Git repository.");
    EXPECT_THAT(fork.runs, IsEmpty());
  }
}

TEST_F(TaskBranchesTest, ComparisonTakesTwoAvailableProviders) {
  start();
  converse();
  app->selected().compareNextPrompt("Which?", {AgentProvider::grok, AgentProvider::codex});
  EXPECT_EQ(error(), "Choose two available providers to compare.");
  EXPECT_EQ(threads().size(), 1u);
  app->selected().compareNextPrompt(" ", {AgentProvider::claude, AgentProvider::codex});
  EXPECT_EQ(threads().size(), 1u);
}

TEST_F(TaskBranchesTest, CopiesOfATaskThatIsStillToBeReadGetItsEntriesThenAndTheirPrompts) {
  HeldExecutor disk;
  writer = &disk;
  start();
  converse();
  const auto source = key;
  model->operations->newThread(key.workspaceID);  // another one is looked at after the restart
  using Made = Result<ThreadExecutionKey>;
  const struct {
    std::function<Made()> make;
    std::vector<std::string> before;  // entries in front of the prompt
    std::string prompt;               // that goes out
  } cases[] = {
      {[&]() -> Made {
         const auto fork = model->branches->forkThread(source, "u2");
         EXPECT_TRUE(model->composer->send("Go on", {}, *fork));
         return fork;
       },
       {"u1", "a1", "u2"},
       "Go on"},
      {[&] { return model->branches->branchAndSend(source, "a1", "Again"); }, {}, "Again"},
      {[&] { return model->branches->retry(source); }, {"u1", "a1"}, "text of u2"},
      {[&] { return model->branches->branchAndSend(source, "none", "Lost"); }, {}, ""},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.prompt);
    clients.clear();
    restart();
    disk.isHeld = true;
    ASSERT_FALSE(model->tree.thread(source)->entries.isRead());
    const auto made = each.make();
    ASSERT_TRUE(made);
    EXPECT_FALSE(model->tree.thread(source)->entries.isRead()) << "not read on the main queue";
    main.runReady();
    EXPECT_TRUE(clients.empty()) << "it waits";
    EXPECT_TRUE(model->branches->isPreparing(*made));
    disk.release();
    main.runReady();
    const ChatThread& copy = *model->tree.thread(*made);
    const auto all = ids(copy);
    ASSERT_GT(all.size(), each.before.size());
    EXPECT_EQ(std::vector(all.begin(), all.begin() + static_cast<long>(each.before.size())),
              each.before);
    EXPECT_EQ(clients.size(), each.prompt.empty() ? 0U : 1U);
    if (each.prompt.empty()) {
      EXPECT_EQ(copy.entries.back().text, "There is no prompt to branch from.");
      EXPECT_EQ(copy.draftText, "Lost");
    } else {
      EXPECT_EQ(copy.runs.back().prompt, each.prompt);
    }
  }
  stop();
}

TEST_F(TaskBranchesTest, WhatAFrontEndChoseForABranchHoldsInItsWorktree) {
  startInRepository();
  converse();
  background.isHeld = true;
  const auto branch = model->branches->branchAndSend(key, "u2", "Again");
  model->controls.chooseForTurns(*branch, {.provider = AgentProvider::claude, .isDriven = true});
  background.release();
  main.runReady();
  ASSERT_TRUE(model->tree.thread(*branch)->isolatedWorkspacePath);
  EXPECT_EQ(clients.back()->provider(), AgentProvider::claude);
  EXPECT_TRUE(model->executions.choicesFor(*branch).isDriven);
}

}  // namespace vantrell::tests
