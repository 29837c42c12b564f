#include "records/stores/workspace_store.h"

#include <filesystem>
#include <gtest/gtest.h>

#include "platform/storage/user_defaults.h"
#include "records/stores/conversation_json.h"
#include "support/in_child.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

constexpr std::string_view key = "savedWorkspaces.v1";
constexpr Date now(1000);

class WorkspaceStoreTest : public testing::Test {
 protected:
  Workspace project(const std::string& name) {
    return Workspace::makeProject(folder_.folder(name), now);
  }
  void store(const std::vector<Workspace>& workspaces) {
    defaults_->setData(key, encodeWorkspaces(workspaces, conversationJson));
  }
  /// What the next start finds, before its own rules.
  std::vector<Workspace> stored() {
    const auto document = WorkspaceStore(*defaults_, support()).exportDocument();
    EXPECT_TRUE(document) << document.error();
    return decodeWorkspaces(document->document, conversationJson).value();
  }
  /// The files in the support folder that hold what was kept aside.
  std::vector<std::string> keptFiles() {
    std::vector<std::string> paths;
    for (const auto& name : folder_.names("support")) {
      if (name.ends_with(".json")) paths.push_back(support() + "/" + name);
    }
    return paths;
  }
  std::string support() { return folder_.folder("support"); }

  tests::TemporaryFolder folder_;
  std::unique_ptr<UserDefaults> defaults_ = UserDefaults::inMemory();
};

TEST_F(WorkspaceStoreTest, FirstStartGivesTheGeneralWorkspaceAndItsFolder) {
  WorkspaceStore store(*defaults_, support());
  const auto loaded = store.load(now);
  ASSERT_EQ(loaded.size(), 1U);
  EXPECT_EQ(loaded[0].name, "General");
  EXPECT_EQ(loaded[0].path, support() + "/General Chats");
  EXPECT_EQ(store.generalWorkspacePath(), loaded[0].path);
  ASSERT_EQ(loaded[0].threads.size(), 1U);
  EXPECT_EQ(loaded[0].threads[0].title, "New chat");
  EXPECT_TRUE(std::filesystem::is_directory(loaded[0].path));
  EXPECT_EQ(stored(), loaded) << "a load ends with a save";
  EXPECT_EQ(store.notice(), std::nullopt);
  EXPECT_EQ(store.load(Date(2000)), loaded) << "the second start finds what the first one made";
}

TEST_F(WorkspaceStoreTest, ConversationsOfMissingFoldersAreKeptAsideAndTold) {
  const auto withRun = [](Workspace workspace) {
    workspace.threads[0].runs.emplace_back().id = Uuid::random();
    return workspace;
  };
  Workspace spoken = project("spoken");
  ChatEntry entry;
  entry.id = "e";
  entry.text = "precious";
  spoken.threads[0].entries.append(std::move(entry));
  const Workspace run = withRun(project("run"));
  const Workspace empty = project("empty");
  Workspace draft = project("draft");
  draft.threads[0].draftText = "unsent";
  const Workspace there = withRun(project("there"));
  const std::string folder = support();
  {
    WorkspaceStore store(*defaults_, folder);
    store.load(now);
    ASSERT_TRUE(store.save({spoken, there, empty, run, draft})) << store.lastError();
  }
  for (const auto& path : {spoken.path, run.path, empty.path, draft.path})
    std::filesystem::remove(path);

  {
    WorkspaceStore store(*defaults_, folder);
    const auto loaded = store.load(now);
    ASSERT_EQ(loaded.size(), 2U);
    EXPECT_EQ(loaded[1], there);
    ASSERT_EQ(keptFiles().size(), 1U);
    const std::string path = keptFiles()[0];
    EXPECT_TRUE(path.contains("/conversations of missing folders 2001-01-01 00.16.40Z")) << path;
    ASSERT_TRUE(store.notice());
    for (const auto& part : {spoken.path, run.path, "\"" + path + "\""}) {
      EXPECT_TRUE(store.notice()->contains(part)) << *store.notice();
    }
    EXPECT_FALSE(store.notice()->contains(empty.path)) << "nothing of it is lost";
    const auto kept = decodeWorkspaces(tests::TemporaryFolder::contentOf(path), conversationJson);
    ASSERT_TRUE(kept);
    EXPECT_EQ(*kept, (std::vector{spoken, run, draft}));
  }
  WorkspaceStore again(*defaults_, folder);
  EXPECT_EQ(again.load(now).size(), 2U);
  EXPECT_EQ(again.notice(), std::nullopt) << "told once";
  EXPECT_EQ(keptFiles().size(), 1U);
}

TEST_F(WorkspaceStoreTest, ConversationsOfMissingFoldersStayWhenTheyCannotBeKeptAside) {
  Workspace gone = project("gone");
  gone.threads[0].runs.emplace_back().id = Uuid::random();
  const std::string folder = support();
  // More text than the limit below leaves room for in one file.
  ChatEntry entry;
  entry.text = std::string(2'000'000, 'x');
  gone.threads[0].entries.append(std::move(entry));
  {
    WorkspaceStore store(*defaults_, folder);
    store.load(now);
    ASSERT_TRUE(store.save({gone}));
  }
  std::filesystem::remove(gone.path);
  const int status = tests::inChild([&] {
    if (!tests::limitFileSize(1'000'000)) return 1;
    WorkspaceStore store(*defaults_, folder);
    const auto loaded = store.load(now);
    if (loaded.size() != 2 || loaded[1] != gone) return 2;
    return store.notice() && store.notice()->contains(gone.path) ? 0 : 3;
  });
  EXPECT_EQ(status, 0);
  WorkspaceStore store(*defaults_, folder);
  EXPECT_EQ(store.load(now).size(), 1U) << "with room for the copy they go";
  ASSERT_TRUE(store.notice());
  EXPECT_TRUE(store.notice()->contains("kept in")) << *store.notice();
}

TEST_F(WorkspaceStoreTest, GeneralWorkspaceMovesToTheFrontUnderItsOwnName) {
  const Workspace first = project("first");
  const Workspace second = project("second");
  Workspace general = Workspace::makeGeneral(support() + "/./General Chats/", now);
  general.name = "Renamed";
  general.isPinned = true;
  store({first, general, second});
  const auto loaded = WorkspaceStore(*defaults_, support()).load(now);
  ASSERT_EQ(loaded.size(), 3U);
  EXPECT_EQ(loaded[0].id, general.id);
  EXPECT_EQ(loaded[0].name, "General");
  EXPECT_EQ(loaded[0].threads, general.threads);
  EXPECT_TRUE(loaded[0].isPinned);
  EXPECT_EQ(loaded[1], first);
  EXPECT_EQ(loaded[2], second);
}

TEST_F(WorkspaceStoreTest, DocumentThatCannotEvenBeKeptAsideIsNeverOverwritten) {
  const std::string broken = "not json";
  defaults_->setData(key, broken);
  // A file where the support folder should be: nothing can be written there, not even by root.
  const std::string blocked = folder_.file("blocked", "");
  WorkspaceStore store(*defaults_, blocked);
  const auto loaded = store.load(now);
  ASSERT_EQ(loaded.size(), 1U) << "the program still starts";
  EXPECT_EQ(defaults_->data(key), broken);
  EXPECT_FALSE(store.save(loaded));
  EXPECT_FALSE(store.lastError().empty());
  EXPECT_EQ(defaults_->data(key), broken);
  EXPECT_TRUE(store.notice());
}

}  // namespace
}  // namespace vantrell
