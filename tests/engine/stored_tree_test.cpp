// Whatever is done to the tree: after each save, a restart finds what is in memory; and a save
// writes what changed and nothing else.
#include <filesystem>
#include <gtest/gtest.h>
#include <random>

#include "engine/core/changes.h"
#include "engine/core/workspace_tree.h"
#include "platform/queues/manual_main_queue.h"
#include "platform/storage/user_defaults.h"
#include "records/stores/workspace_store.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {
namespace {

ChatEntry entryWith(std::string id, std::string text) {
  ChatEntry entry;
  entry.id = std::move(id);
  entry.kind = ChatEntryKind::assistant;
  entry.text = std::move(text);
  entry.createdAt = Date(1);
  return entry;
}

/// A tree with its store, and random operations on it.
class StoredTreeUnderTest {
 public:
  explicit StoredTreeUnderTest(unsigned seed) : random_(seed) {
    for (const char* name : {"a", "b", "c"}) folder_.folder(name);
    tree_.load();
  }

  void change() {
    main_.advance(std::chrono::seconds(1));
    const auto key = anyThread();
    const std::string fresh = "id-" + std::to_string(++lastID_);
    switch (below(20)) {
      case 0: {
        const std::string name(1, static_cast<char>('a' + below(3)));
        return tree_.addWorkspace(Workspace::makeProject(folder_ / name, main_.now()));
      }
      case 1:
        if (below(4) == 0 && tree_.workspaces().size() > 2) {
          tree_.removeWorkspace(tree_.workspaces()[1 + below(tree_.workspaces().size() - 1)].id);
        }
        return;
      case 2: return tree_.setWorkspacePinned(anyWorkspace(), below(2) == 0);
      case 3:
      case 4: return tree_.addThread(ChatThread::make("New task", main_.now()), anyWorkspace());
      case 5:
        if (key && below(3) == 0) tree_.removeThread(*key);
        return;
      case 6:
        if (key) tree_.moveThread(*key, anyWorkspace());
        return;
      default: break;
    }
    if (key) changeThread(*key, fresh);
  }

  void endTurn() { main_.advance(WorkspaceTree::streamInterval); }

  /// As if the program had been ended and started.
  void restart() {
    tree_.flush();
    tree_.load();
  }

  void expectStored() {
    WorkspaceStore again(*defaults_, folder_.path());
    ASSERT_EQ(again.load(main_.now()), tree_.workspaces());
    ASSERT_EQ(again.notice(), std::nullopt);
    ASSERT_EQ(again.lastError(), "");
  }

 private:
  std::size_t below(std::size_t end) {
    return std::uniform_int_distribution<std::size_t>(0, end - 1)(random_);
  }
  Uuid anyWorkspace() { return tree_.workspaces()[below(tree_.workspaces().size())].id; }
  std::optional<ThreadExecutionKey> anyThread() {
    const Workspace& workspace = tree_.workspaces()[below(tree_.workspaces().size())];
    if (workspace.threads.empty()) return std::nullopt;
    return ThreadExecutionKey{workspace.id, workspace.threads[below(workspace.threads.size())].id};
  }

  void changeThread(const ThreadExecutionKey& key, const std::string& fresh) {
    const ChatThread& thread = *tree_.thread(key);
    const bool hasEntries = !thread.entries.empty();
    switch (below(12)) {
      case 0: return tree_.updateThread(key, [&](ChatThread& each) { each.title = fresh; });
      case 1: return tree_.truncateTranscript(below(thread.entries.size() + 2), key);
      case 2: return tree_.updateThread(key, [&](ChatThread& each) { each.checkpoints.resize(2); });
      case 3: {
        const Uuid run = tree_.beginRun(fresh, key);
        return tree_.updateRun(run, key, [](RunRecord& each) { each.statusMessage = "runs"; });
      }
      case 4:
        if (thread.runs.empty()) return;
        return tree_.updateRun(thread.runs[below(thread.runs.size())].id, key,
                               [&](RunRecord& each) { each.statusMessage = fresh; });
      case 5: {
        std::vector<ChatEntry> entries(thread.entries.begin(), thread.entries.end());
        const std::size_t place = below(entries.size() + 1);
        entries.insert(entries.begin() + static_cast<std::ptrdiff_t>(place), entryWith(fresh, "x"));
        return tree_.replaceTranscript(Transcript(std::move(entries)), key);
      }
      case 6: return tree_.replaceTranscript(Transcript{entryWith(fresh, "x")}, key);
      case 7:
        if (!hasEntries) return;
        return (void)tree_.updateEntry(thread.entries[below(thread.entries.size())].id, key,
                                       [&](ChatEntry& each) { each.status = fresh; });
      case 8:
      case 9:
        if (!hasEntries) return;
        return (void)tree_.appendText("more", thread.entries.back().id, key);
      default:
        for (std::size_t i = 1 + below(5); i > 0; --i) {
          tree_.appendEntry(entryWith(fresh + "-" + std::to_string(i), "text"), key);
        }
    }
  }

  TemporaryFolder folder_;
  ManualMainQueue main_;
  std::unique_ptr<UserDefaults> defaults_ = UserDefaults::inMemory();
  WorkspaceStore store_{*defaults_, folder_.path()};
  Changes changes_{main_};
  WorkspaceTree tree_{main_, store_, changes_};
  std::mt19937 random_;
  int lastID_ = 0;
};

TEST(StoredTree, IsTheTreeInMemoryAfterEachSave) {
  // What is tested is what is written, not that it stays: without a disk this is twenty times as
  // fast.
  if (std::filesystem::is_directory("/dev/shm")) setenv("TMPDIR", "/dev/shm", 1);
  for (unsigned seed = 0; seed < 250; ++seed) {
    SCOPED_TRACE(seed);
    StoredTreeUnderTest tree(seed);
    for (int round = 0; round < 12; ++round) {
      for (unsigned i = 0; i < 1 + seed % 7; ++i) tree.change();
      tree.endTurn();
      ASSERT_NO_FATAL_FAILURE(tree.expectStored());
      if (round % 4 == 3) tree.restart();
    }
  }
  unsetenv("TMPDIR");
}

/// Three hundred tasks in a project; the last has ten thousand entries and a thousand runs.
class LargeTree : public testing::Test {
 protected:
  LargeTree() {
    Workspace project = Workspace::makeProject(folder_.folder("project"), Date(1));
    for (int i = 0; i < 300; ++i) project.threads.push_back(ChatThread::make("T", Date(1)));
    ChatThread& large = project.threads.back();
    for (int i = 0; i < 10'000; ++i) large.entries.append(entryWith(std::to_string(i), "text"));
    for (int i = 0; i < 1'000; ++i) {
      large.runs.emplace_back().id = Uuid::random();
    }
    owner_ = project.id;
    key_ = {project.id, large.id};
    workspaces_ = store_.load(Date(1));
    workspaces_.push_back(std::move(project));
    EXPECT_TRUE(store_.save(workspaces_)) << store_.lastError();
    workspaces_ = store_.load(Date(2));
  }
  ChatThread& large() { return *workspaces_[1].thread(key_.threadID); }
  std::size_t rows(const TreeChanges& changes) {
    batch_ = store_.collect(workspaces_, changes);
    EXPECT_TRUE(store_.write(batch_));
    return batch_.rowCount();
  }

  TemporaryFolder folder_;
  std::unique_ptr<UserDefaults> defaults_ = UserDefaults::inMemory();
  WorkspaceStore store_{*defaults_, folder_.path()};
  std::vector<Workspace> workspaces_;
  Uuid owner_;
  ThreadExecutionKey key_;
  SaveBatch batch_;
};

TEST_F(LargeTree, SaveWritesWhatChangedAndNothingElse) {
  TreeChanges::Thread marks;
  EXPECT_EQ(rows({.structure = true}), 0U) << "what was loaded is stored";
  EXPECT_EQ(rows({.threads = {{key_, marks}}}), 0U);
  marks.head = true;
  large().title = "Renamed";
  EXPECT_EQ(rows({.threads = {{key_, marks}}}), 1U);

  auto& threads = workspaces_[1].threads;
  threads.insert(threads.begin(), ChatThread::make("New", Date(4)));
  EXPECT_EQ(rows({.structure = true}), 2U) << "its row and its head";
  std::rotate(threads.begin(), threads.end() - 1, threads.end());
  EXPECT_EQ(rows({.structure = true}), 1U) << "one place";
  threads.erase(threads.begin() + 1);
  EXPECT_EQ(rows({.structure = true}), 1U);

  marks = {};
  marks.runs.places = {500};
  large().runs[500].statusMessage = "x";
  EXPECT_EQ(rows({.threads = {{key_, marks}}}), 1U);
  EXPECT_FALSE(large().entries.isRead()) << "nothing so far needed the entries";

  marks = {};
  large().entries.append(entryWith("new", "x"));
  EXPECT_EQ(rows({.threads = {{key_, {}}}}), 2U) << "the entry and the thread's own row";
  EXPECT_FALSE(large().entries.isRead());
  marks.entries.places = {9999};
  large().entries.find("9999")->text += "chunk";
  large().updatedAt = Date(3);
  EXPECT_EQ(rows({.threads = {{key_, marks}}}), 2U);

  marks = {};
  marks.entries.cutTo(5);
  large().entries.truncate(5);
  large().entries.append(entryWith("n", "x"));
  EXPECT_EQ(rows({.threads = {{key_, marks}}}), 2U) << "the one that is new, and the count";
  EXPECT_EQ(WorkspaceStore(*defaults_, folder_.path()).load(Date(9)), workspaces_);
}

/// Keeps work until told.
class ManualExecutor final : public Executor {
 public:
  void post(Work work) override { works.push_back(std::move(work)); }
  void runOne() {
    auto work = std::move(works.front());
    works.pop_front();
    work();
  }
  std::deque<Work> works;
};

class SlowWriter : public testing::Test {
 protected:
  SlowWriter() {
    tree_.load();
    key_ = {tree_.workspaces()[0].id, tree_.workspaces()[0].threads[0].id};
  }
  ~SlowWriter() override { settle(); }
  void settle() {
    main_.advance(WorkspaceTree::streamInterval);
    while (!writer_.works.empty()) {
      writer_.runOne();
      main_.runReady();
    }
  }
  std::vector<RunRecord> storedRuns() {
    return WorkspaceStore(*defaults_, folder_.path()).load(Date(1))[0].threads[0].runs;
  }

  TemporaryFolder folder_;
  ManualMainQueue main_;
  std::unique_ptr<UserDefaults> defaults_ = UserDefaults::inMemory();
  WorkspaceStore store_{*defaults_, folder_.path()};
  Changes changes_{main_};
  ManualExecutor writer_;
  WorkspaceTree tree_{main_, store_, changes_, &writer_};
  ThreadExecutionKey key_;
};

TEST_F(SlowWriter, SavesGatherWhileItWorks) {
  for (int i = 0; i < 100; ++i) {
    tree_.appendSystemEntry("text", key_);
    main_.runReady();
  }
  EXPECT_LE(writer_.works.size(), 2U);
  while (!writer_.works.empty()) {
    writer_.runOne();
    main_.runReady();
  }
  EXPECT_EQ(WorkspaceStore(*defaults_, folder_.path()).load(Date(1)), tree_.workspaces());
}

TEST_F(SlowWriter, PromptIsHandedOverHoweverMuchIsOnItsWay) {
  for (int i = 0; i < 10; ++i) {
    tree_.appendSystemEntry("text", key_);
    main_.runReady();
  }
  const auto before = writer_.works.size();
  tree_.beginRun("prompt", key_);
  EXPECT_EQ(writer_.works.size(), before + 1);
  while (!writer_.works.empty()) writer_.runOne();  // the main queue has not been told yet
  ASSERT_EQ(storedRuns().size(), 1U);
  EXPECT_EQ(storedRuns()[0].prompt, "prompt");
}

TEST_F(SlowWriter, TranscriptIsReadInTheBackgroundTheEndFirst) {
  for (int i = 0; i < 1000; ++i) tree_.appendEntry(entryWith(std::to_string(i), "text"), key_);
  tree_.updateEntry("3", key_, [](ChatEntry& entry) {
    entry.kind = ChatEntryKind::tool;
    entry.status = "in_progress";
  });
  tree_.beginRun("prompt", key_);
  settle();
  tree_.load();
  int announced = 0;
  const auto observation = changes_.observe([&](const ChangeBatch& batch) {
    const auto* changes = batch.of(key_);
    announced += changes && changes->transcriptLoaded ? 1 : 0;
  });
  tree_.settleRunsLeftOpen();  // needs it too
  bool isLoaded = false;
  tree_.loadTranscript(key_, [&] { isLoaded = true; });
  const Transcript& entries = tree_.thread(key_)->entries;
  tree_.appendSystemEntry("meanwhile", key_);
  EXPECT_EQ(entries.size(), 1001U);
  EXPECT_FALSE(entries.isRead());
  ASSERT_GE(writer_.works.size(), 1U) << "off the main queue";
  writer_.runOne();
  EXPECT_EQ(entries.unread(), 1000U);
  main_.runUntil([&] { return entries.unread() < 1000U; });
  EXPECT_FALSE(isLoaded);
  EXPECT_EQ(entries.unread(), 800U);
  EXPECT_EQ(entries[900].id, "900");
  EXPECT_FALSE(entries.isRead()) << "the end is there, and needs no reading";
  main_.runUntil([&] { return isLoaded; });
  main_.runReady();
  EXPECT_GE(announced, 1);
  EXPECT_TRUE(entries.isRead());
  EXPECT_EQ(entries.indexOf("7"), 7U);
  EXPECT_EQ(entries.back().text, "meanwhile");
  EXPECT_EQ(entries[3].status, "failed") << "it was left open";
  settle();
  EXPECT_EQ(WorkspaceStore(*defaults_, folder_.path()).load(Date(1)), tree_.workspaces());
}

TEST_F(SlowWriter, WorkOnATranscriptWaitsForItWhereverTheTaskGoes) {
  ChatEntry attached = entryWith("0", "text");
  attached.attachments = {{Uuid::random(), "a.md", "docs/a.md", ChatAttachmentKind::file, {}, {}}};
  tree_.appendEntry(attached, key_);
  tree_.addWorkspace(Workspace::makeProject(folder_.folder("other"), Date(1)));
  settle();
  const auto source = tree_.workspaces().front().path;
  tree_.load();
  const ThreadExecutionKey moved{tree_.workspaces().back().id, key_.threadID};
  std::vector<ThreadExecutionKey> done;
  tree_.whenRead(key_, [&](const ThreadExecutionKey& key) { done.push_back(key); });
  tree_.moveThread(key_, moved.workspaceID);
  EXPECT_TRUE(done.empty());
  EXPECT_FALSE(tree_.thread(moved)->entries.isRead()) << "not read on the main queue";
  settle();
  EXPECT_EQ(done, std::vector{moved}) << "where the conversation is by then";
  EXPECT_EQ(tree_.thread(moved)->entries[0].attachments[0].path, source + "/docs/a.md");
  EXPECT_EQ(WorkspaceStore(*defaults_, folder_.path()).load(Date(1)), tree_.workspaces());
}

TEST_F(SlowWriter, StoreThatWasMendedIsToldAndWrittenAgain) {
  const TemporaryFolder folder;
  {
    WorkspaceStore store(*defaults_, folder.path());
    ASSERT_TRUE(store.save(store.load(Date(1))));
  }
  std::string content = folder.contentOf(folder / "conversations.sqlite");
  content.replace(32, 8, std::string("\0\0\x7F\xFF\0\0\0\5", 8));  // its list of free pages
  folder.file("conversations.sqlite", content);
  WorkspaceStore store(*defaults_, folder.path());
  WorkspaceTree tree(main_, store, changes_);
  tree.load();
  std::string told;
  const auto observation = changes_.observe([&](const ChangeBatch& batch) {
    EXPECT_TRUE(batch.saveFailures.empty());
    for (const auto& notice : batch.notices) told += notice;
  });
  const auto& general = tree.workspaces()[0];
  tree.appendSystemEntry(std::string(100'000, 'd'), {general.id, general.threads[0].id});
  main_.runReady();
  EXPECT_TRUE(told.contains("have been mended")) << told;
  EXPECT_EQ(WorkspaceStore(*defaults_, folder.path()).load(Date(1)), tree.workspaces());
}

TEST_F(SlowWriter, FlushOnAThreadOfItsOwnLeavesAllOnTheDisk) {
  BackgroundPool pool(1);
  WorkspaceStore store(*defaults_, folder_.path());
  WorkspaceTree tree(main_, store, changes_, &pool);
  tree.load();
  for (int i = 0; i < 50; ++i) tree.appendSystemEntry("text", key_);
  EXPECT_TRUE(tree.flush());
  tree.load();
  bool isDone = false;
  tree.whenRead(key_, [&](const auto&) { isDone = true; });
  EXPECT_TRUE(tree.flush() && isDone) << "a short command ends before the transcript is read";
  EXPECT_EQ(WorkspaceStore(*defaults_, folder_.path()).load(Date(1)), tree.workspaces());
}

}  // namespace
}  // namespace vantrell::tests
