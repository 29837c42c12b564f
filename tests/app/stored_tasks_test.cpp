// Searching, exporting and importing what is stored.
#include "app/stored_tasks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/conversation_transfer.h"
#include "platform/queues/manual_main_queue.h"
#include "support/held_executor.h"
#include "support/task_records.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

using testing::HasSubstr;
using tests::entryWith;

class StoredTasksTest : public testing::Test {
 protected:
  StoredTasksTest() {
    tree_.load();
    key_ = {tree_.workspaces()[0].id, tree_.workspaces()[0].threads[0].id};
    tree_.appendEntry(entryWith("first", "The needle is here"), key_);
    main_.runReady();
    background_.isHeld = true;
  }
  std::vector<std::string> found(std::string text) {
    std::vector<std::string> ids;
    tasks_->search({.text = std::move(text)}, 10, [&](const auto& result) {
      for (const auto& each : *result) ids.push_back(each.entryID.value_or("") + each.hit);
    });
    settle();
    return ids;
  }
  void settle() {
    main_.runReady();
    background_.release();
    main_.runReady();
  }

  tests::TemporaryFolder folder_;
  ManualMainQueue main_;
  tests::HeldExecutor background_;
  std::unique_ptr<UserDefaults> defaults_ = UserDefaults::inMemory();
  Changes changes_{main_};
  WorkspaceStore store_{*defaults_, folder_.path()};
  WorkspaceTree tree_{main_, store_, changes_};
  std::shared_ptr<StoredTasks> tasks_ =
      std::make_shared<StoredTasks>(main_, tree_, &background_, folder_.path());
  ThreadExecutionKey key_;
};

TEST_F(StoredTasksTest, SearchFindsWhatHasJustBeenWrittenAndANewOneEndsTheFormer) {
  tree_.appendText(" and there", "first", key_);
  EXPECT_EQ(found("here and there"), std::vector<std::string>{"firsthere and there"});
  background_.isHeld = true;
  bool isFormerDone = false;
  tasks_->search({.text = "needle"}, 10, [&](const auto&) { isFormerDone = true; });
  main_.runReady();
  EXPECT_EQ(background_.held.size(), 1U) << "nothing is read on the main queue";
  EXPECT_EQ(found("nothing"), std::vector<std::string>());
  EXPECT_FALSE(isFormerDone);
}

TEST_F(StoredTasksTest, ExportWritesOwnerOnlyAndReplacesOnlyWhenTold) {
  const std::string path = folder_ / "task.md";
  std::vector<std::string> ends;
  const auto note = [&](const Result<>& result) {
    ends.push_back(result ? "done" : result.error().sentence);
  };
  tasks_->exportConversation(key_, path, false, note);
  settle();
  tasks_->exportConversation(key_, path, false, note);
  settle();
  tasks_->exportConversation({key_.workspaceID, Uuid::random()}, path, true, note);
  settle();
  tasks_->exportAll(folder_ / "all.json", false, note);
  settle();
  EXPECT_THAT(ends, testing::ElementsAre("done", HasSubstr("exists already"),
                                         "That conversation is no longer available.", "done"));
  EXPECT_THAT(*files::read(path), HasSubstr("The needle is here"));
  EXPECT_EQ(std::filesystem::status(path).permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(StoredTasksTest, ImportTakesTheLockAndKeepsWhatItReplaces) {
  tree_.flush();
  const UserFolders folders{folder_.path(), folder_.folder("config")};
  const auto exported = exportConversations(folders);
  ASSERT_TRUE(exported) << exported.error();
  {
    const auto import = ConversationImport::begin(folders, Date(0));
    ASSERT_TRUE(import) << import.error();
    EXPECT_FALSE(ConversationImport::begin(folders, Date(0))) << "another process owns the state";
    EXPECT_EQ((*import)->present()->size(), 1U);
    EXPECT_THAT((*import)->replace("{", Date(0)).error(), HasSubstr("cannot be read"));
    const auto replaced = (*import)->replace(exported->document, Date(0));
    ASSERT_TRUE(replaced) << replaced.error();
    EXPECT_TRUE(files::exists(replaced->keptAside));
  }
  EXPECT_EQ(storedConversations(folders, Date(0))->workspaces, tree_.workspaces());
}

}  // namespace
}  // namespace vantrell
