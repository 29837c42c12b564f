#include <gmock/gmock.h>

#include "support/engine_fixture.h"

namespace vantrell::tests {
namespace {

using ::testing::ElementsAre;

class WorkspaceOperations : public EngineFixture {
 public:
  vantrell::WorkspaceOperations& operations() { return *model->operations; }
  vantrell::Navigation& navigation() { return model->navigation; }
  const Workspace& project() { return *model->tree.workspace(key.workspaceID); }
  const Workspace& general() { return *navigation().generalWorkspace(); }
  Uuid selected() { return model->selection.key()->threadID; }
  static std::string refusal(const Result<>& result) {
    return result ? "" : result.error().sentence;
  }
  Uuid addTask() {
    operations().newThread(key.workspaceID);
    return selected();
  }
};

TEST_F(WorkspaceOperations, DeletingTheOnlyTaskLeavesANewOneSelected) {
  start();
  work("Go");
  operations().deleteThread(key.threadID, key.workspaceID);
  ASSERT_EQ(project().threads.size(), 1U);
  EXPECT_NE(project().threads[0].id, key.threadID);
  EXPECT_EQ(project().threads[0].title, "New task");
  EXPECT_EQ(selected(), project().threads[0].id);
  EXPECT_EQ(client().stops, 1);
  client().says("late");  // finds no conversation
  EXPECT_EQ(saved()[1].threads.size(), 1U);
}

TEST_F(WorkspaceOperations, RemovingAProjectEndsItsClientsAndSelectsTheFirst) {
  start();
  work("Go");
  operations().removeWorkspace(general().id);
  EXPECT_EQ(model->tree.workspaces().size(), 2U) << "General stays";
  operations().removeWorkspace(key.workspaceID);
  EXPECT_EQ(client().stops, 1);
  EXPECT_EQ(model->tree.workspaces().size(), 1U);
  EXPECT_EQ(model->selection.key()->workspaceID, general().id);
  EXPECT_TRUE(std::filesystem::exists(folder / "project"));
}

TEST_F(WorkspaceOperations, NewTaskGoesWhereTheSectionWorks) {
  std::string asked;
  whenChoosingFolder = [&](std::string_view title, std::string_view prompt, const auto& reply) {
    asked = std::string(title) + "/" + std::string(prompt);
    reply(folder.folder("chosen"));
  };
  restart();
  operations().newThread();
  EXPECT_EQ(asked, "Choose a project/Open Project") << "there is no project yet";
  EXPECT_EQ(model->tree.workspaces()[1].name, "chosen");

  model->selection.setSection(AppSection::imagine);
  operations().newThread();
  EXPECT_EQ(model->selection.section(), AppSection::chat);
  EXPECT_EQ(model->selection.key()->workspaceID, general().id);
  EXPECT_EQ(model->tree.thread(*model->selection.key())->title, "New chat");

  model->selection.setSection(AppSection::build);
  operations().newThread();
  EXPECT_EQ(model->selection.key()->workspaceID, model->tree.workspaces()[1].id);
  EXPECT_EQ(model->tree.thread(*model->selection.key())->title, "New task");
}

TEST_F(WorkspaceOperations, FolderIsOpenedInAConversationInWhichNothingWasBegun) {
  restart();
  const auto place = folder.folder("opened");
  EXPECT_FALSE(operations().untouchedThread(place)) << "it is no project yet";
  const auto first = operations().openUntouchedThread(place);
  ASSERT_TRUE(first);
  EXPECT_EQ(operations().untouchedThread(place), *first);
  EXPECT_EQ(operations().openUntouchedThread(place), *first);
  model->controls.chooseForTurns(*first, {.isDriven = true});
  EXPECT_FALSE(operations().untouchedThread(place)) << "another command is about to use it";
  const auto second = operations().openUntouchedThread(place);
  ASSERT_TRUE(second);
  EXPECT_NE(*second, *first);
  operations().renameThread(second->threadID, second->workspaceID, "Planned");
  EXPECT_NE(operations().openUntouchedThread(place), *second);
}

TEST_F(WorkspaceOperations, ActiveTasksAreNeitherMovedNorArchived) {
  start();
  work("Go");
  EXPECT_EQ(refusal(operations().moveThread(key.threadID, key.workspaceID, general().id)),
            "Stop this conversation before moving it to another project.");
  EXPECT_EQ(refusal(operations().setThreadArchived(key.threadID, key.workspaceID, true)),
            "Stop this conversation before archiving it.");
  EXPECT_EQ(refusal(operations().archiveWorkspaceThreads(key.workspaceID)),
            "Stop active tasks before archiving this project's conversations.");
  EXPECT_FALSE(thread().isArchived);
  client().finishes();
  execution().connectionState = ConnectionState::connecting();  // of a turn that has no run yet
  EXPECT_EQ(refusal(operations().setThreadArchived(key.threadID, key.workspaceID, true)),
            "Stop this conversation before archiving it.");
  EXPECT_EQ(refusal(operations().moveThread(Uuid::random(), key.workspaceID, general().id)),
            "That conversation or destination project is no longer available.");
}

TEST_F(WorkspaceOperations, MovedTaskStartsAfreshInItsNewFolderAndIsFollowed) {
  start();
  work("Go");
  client().finishes();
  operations().addWorkspace(folder.folder("other"));
  const Uuid other = model->selection.key()->workspaceID;
  navigation().selectThread(key.threadID, key.workspaceID);
  operations().moveThread(key.threadID, key.workspaceID, other);
  EXPECT_EQ(project().threads.size(), 1U) << "a new one is left behind";
  EXPECT_EQ(model->selection.key(), (ThreadExecutionKey{other, key.threadID}));
  const ChatThread& moved = model->tree.workspace(other)->threads[0];
  EXPECT_EQ(moved.sessionID(AgentProvider::kimi), std::nullopt);
  EXPECT_EQ(moved.entries.back().title, "Moved to other");
  EXPECT_EQ(client().stops, 1);
  key = *model->selection.key();
  send("On");
  EXPECT_EQ(contexts.back().workspacePath, folder / "other");
  EXPECT_EQ(client().existingSession, std::nullopt);
}

TEST_F(WorkspaceOperations, ArchivingTheLastVisibleTaskMakesANewOne) {
  start();
  const Uuid second = addTask();
  operations().toggleThreadPin(second, key.workspaceID);
  operations().setThreadArchived(second, key.workspaceID, true);
  EXPECT_EQ(selected(), key.threadID);
  EXPECT_FALSE(project().thread(second)->isPinned);
  operations().setThreadArchived(key.threadID, key.workspaceID, true);
  EXPECT_EQ(project().threads.size(), 3U);
  EXPECT_EQ(selected(), project().threads[0].id);
  operations().setThreadArchived(second, key.workspaceID, false);
  EXPECT_FALSE(project().thread(second)->isArchived);

  operations().archiveWorkspaceThreads(key.workspaceID);
  EXPECT_EQ(project().threads.size(), 4U);
  EXPECT_EQ(std::ranges::count(project().threads, true, &ChatThread::isArchived), 3);
  operations().setThreadArchived(selected(), key.workspaceID, true);
  for (const auto& each : project().threads) {
    model->tree.updateThread({key.workspaceID, each.id},
                             [](ChatThread& t) { t.isArchived = true; });
  }
  EXPECT_EQ(refusal(operations().archiveWorkspaceThreads(key.workspaceID)),
            "This project has no active conversations to archive.");
}

TEST_F(WorkspaceOperations, SelectingAProjectShowsAVisibleTask) {
  start();
  const Uuid second = addTask();
  navigation().selectWorkspace(general().id);
  operations().setThreadArchived(second, key.workspaceID, true);
  navigation().selectWorkspace(key.workspaceID);
  EXPECT_EQ(selected(), key.threadID) << "the first is archived";
}

TEST_F(WorkspaceOperations, LookingAtAnArchivedTaskLeavesItArchivedAndTheProjectFilled) {
  start();
  const Uuid second = addTask();
  operations().setThreadArchived(key.threadID, key.workspaceID, true);
  navigation().selectThread(key.threadID, key.workspaceID);
  EXPECT_EQ(selected(), key.threadID);
  operations().deleteThread(second, key.workspaceID);
  EXPECT_EQ(selected(), key.threadID) << "what is looked at stays";
  EXPECT_EQ(project().threads.size(), 2U) << "the last visible one has gone";
  EXPECT_FALSE(project().threads[0].isArchived);
}

TEST_F(WorkspaceOperations, SearchResultBringsItsEntryIntoView) {
  start();
  model->tree.appendSystemEntry("found", key);
  const std::string entry = thread().entries.back().id;
  navigation().selectWorkspace(general().id);
  model->selection.setSection(AppSection::imagine);
  std::vector<std::string> heard;
  const auto observation = model->changes.observe([&](const ChangeBatch& batch) {
    if (batch.has(topics::selection)) heard.push_back(model->selection.entryID().value_or(""));
  });
  main.runReady();
  heard.clear();
  navigation().openSearchResult(key.workspaceID, key.threadID, entry);
  main.runReady();
  EXPECT_EQ(model->selection.key(), key);
  EXPECT_EQ(model->selection.section(), AppSection::build);
  EXPECT_EQ(model->selection.entryID(), entry);
  navigation().openSearchResult(key.workspaceID, key.threadID, entry);
  main.runReady();
  EXPECT_EQ(heard, (std::vector<std::string>{entry, entry})) << "again, though it is selected";

  navigation().openSearchResult(key.workspaceID, key.threadID, "gone");
  EXPECT_EQ(model->selection.entryID(), std::nullopt);
  navigation().openSearchResult(general().id, general().threads[0].id, "gone");
  EXPECT_EQ(model->selection.section(), AppSection::chat);
  navigation().openSearchResult(general().id, key.threadID, entry);
  EXPECT_EQ(model->selection.key()->workspaceID, general().id) << "no such conversation there";

  navigation().selectActivity({.workspaceID = key.workspaceID, .threadID = key.threadID});
  EXPECT_EQ(model->selection.key(), key);
  EXPECT_EQ(model->selection.section(), AppSection::build);
}

TEST_F(WorkspaceOperations, AWorkspaceRestoredWithoutAVisibleTaskGetsOne) {
  start();
  model->tree.updateThread(key, [](ChatThread& t) { t.isArchived = true; });
  restart();
  EXPECT_EQ(project().threads.size(), 2U);
  EXPECT_FALSE(project().thread(selected())->isArchived);
}

TEST_F(WorkspaceOperations, WhatBelongsToTheProjectIsLoadedForTheOneThatIsSelected) {
  std::vector<std::string> loaded;
  projects.contextSources = [&](const std::string& path, const auto&) {
    loaded.push_back(files::lastComponent(path));
  };
  start();
  addTask();
  operations().newThread(general().id);
  navigation().selectThread(key.threadID, key.workspaceID);
  navigation().selectThread(key.threadID, key.workspaceID);
  operations().removeWorkspace(key.workspaceID);
  EXPECT_THAT(loaded,
              ElementsAre("General Chats", "project", "General Chats", "project", "General Chats"));
}

TEST_F(WorkspaceOperations, RecentTasksAreWalkedRoundTheEnds) {
  start();
  std::vector<Uuid> newestFirst{key.threadID};
  for (int i = 0; i < 2; ++i) {
    main.advance(std::chrono::seconds(1));
    newestFirst.insert(newestFirst.begin(), addTask());
  }
  std::vector<Uuid> walked;
  for (int i = 0; i < 3; ++i) {
    navigation().selectAdjacentRecentTask(1);
    walked.push_back(selected());
  }
  EXPECT_THAT(walked, ElementsAre(newestFirst[1], newestFirst[2], newestFirst[0]));
  navigation().selectAdjacentRecentTask(-1);
  EXPECT_EQ(selected(), newestFirst[2]);

  navigation().selectWorkspace(general().id);
  navigation().selectAdjacentRecentTask(1);
  EXPECT_EQ(selected(), newestFirst[0]) << "from outside the list forward: its first";
}

TEST_F(WorkspaceOperations, RenamingTrimsAndDraftsLeaveTheOrderAlone) {
  start();
  operations().renameThread(key.threadID, key.workspaceID, "  ");
  EXPECT_EQ(thread().title, "New task");
  main.advance(std::chrono::seconds(1));
  operations().renameThread(key.threadID, key.workspaceID, " Better ");
  EXPECT_EQ(thread().title, "Better");
  const Date renamed = thread().updatedAt;
  EXPECT_EQ(renamed, main.now());

  main.advance(std::chrono::seconds(1));
  operations().saveComposerDraft("half a", {}, key.threadID, key.workspaceID);
  EXPECT_EQ(operations().composerDraft(key.threadID, key.workspaceID), "half a");
  EXPECT_EQ(saved()[1].threads[0].draftText, "half a");
  EXPECT_EQ(thread().updatedAt, renamed);
}

}  // namespace
}  // namespace vantrell::tests
