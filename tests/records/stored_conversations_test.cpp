// What becomes of stored conversations when things go wrong: full disks, damaged files, sudden
// ends, documents of earlier versions.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include "platform/storage/user_defaults.h"
#include "records/stores/conversation_json.h"
#include "records/stores/workspace_store.h"
#include "support/in_child.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

using tests::TemporaryFolder;

constexpr std::string_view documentKey = "savedWorkspaces.v1";
constexpr Date now(1000);

ChatEntry entryWith(std::string id, std::string text) {
  ChatEntry entry;
  entry.id = std::move(id);
  entry.text = std::move(text);
  return entry;
}

class StoredConversations : public testing::Test {
 protected:
  explicit StoredConversations(
      const std::filesystem::path& base = std::filesystem::temp_directory_path())
      : folder_(base) {
    folder_.folder("project");
  }

  /// A project with tasks of three entries each.
  std::vector<Workspace> project(int tasks) {
    std::vector<Workspace> workspaces{Workspace::makeProject(folder_ / "project", now)};
    workspaces[0].threads.clear();
    for (int i = 0; i < tasks; ++i) {
      ChatThread thread = ChatThread::make("Task " + std::to_string(i), now);
      for (const char* id : {"a", "b", "c"}) {
        thread.entries.append(
            entryWith(id, std::string("a\0b\n\xC3\xA9", 6) + std::string(294, 't')));
      }
      thread.runs.emplace_back().id = Uuid::random();
      workspaces[0].threads.push_back(std::move(thread));
    }
    return workspaces;
  }
  /// Stores that project and closes the file, so that all of it is in one piece.
  std::vector<Workspace> makeStore(int tasks) {
    WorkspaceStore store(*defaults_, folder_.path());
    auto workspaces = store.load(now);
    workspaces.push_back(project(tasks)[0]);
    EXPECT_TRUE(store.save(workspaces)) << store.lastError();
    return workspaces;
  }
  std::vector<Workspace> load(std::optional<std::string>* notice = nullptr) {
    WorkspaceStore store(*defaults_, folder_.path());
    auto workspaces = store.load(now);
    for (const auto& each : workspaces) {
      for (const auto& thread : each.threads) (void)thread.entries.begin();
    }
    if (notice) *notice = store.notice();
    return workspaces;
  }
  std::string file() { return folder_ / "conversations.sqlite"; }
  std::vector<std::string> quarantined() {
    std::vector<std::string> kept;
    for (const auto& name : folder_.names()) {
      if (name.starts_with("conversations ")) kept.push_back(folder_ / name);
    }
    return kept;
  }
  /// As if there had never been a store.
  void clear() {
    for (const auto& name : folder_.names()) {
      if (name.starts_with("conversations")) std::filesystem::remove(folder_ / name);
    }
  }
  void run(const std::string& sql) {
    sqlite3* database = nullptr;
    sqlite3_open(file().c_str(), &database);
    EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sql;
    sqlite3_close(database);
  }

  TemporaryFolder folder_;
  std::unique_ptr<UserDefaults> defaults_ = UserDefaults::inMemory();
};

// ---- damage -------------------------------------------------------------------------------------

/// Thousands of loads: on a disk, each would wait for it several times.
class StoredConversationsInMemory : public StoredConversations {
 protected:
  StoredConversationsInMemory()
      : StoredConversations(std::filesystem::is_directory("/dev/shm")
                                ? "/dev/shm"
                                : std::filesystem::temp_directory_path()) {}
};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t cutStep = 61;  // the sanitizers multiply the time; other builds try each byte
#else
constexpr std::size_t cutStep = 1;
#endif

TEST_F(StoredConversationsInMemory, FileCutAtAnyByteOfItsLastPageIsKeptAndWhatCanBeReadIsShown) {
  constexpr std::size_t page = 4096;
  constexpr std::size_t tasks = 6;
  makeStore(tasks);
  const std::string whole = TemporaryFolder::contentOf(file());
  ASSERT_GT(whole.size(), page * 4);
  for (std::size_t cut = 1; cut <= page; cut += cut == page ? 1 : std::min(cutStep, page - cut)) {
    SCOPED_TRACE(cut);
    clear();
    const std::string damaged = whole.substr(0, whole.size() - cut);
    folder_.file("conversations.sqlite", damaged);
    std::optional<std::string> notice;
    const auto loaded = load(&notice);
    const auto kept = quarantined();
    ASSERT_EQ(kept.size(), 1U);
    ASSERT_EQ(TemporaryFolder::contentOf(kept[0]), damaged);
    ASSERT_TRUE(notice);
    ASSERT_TRUE(notice->contains(kept[0])) << *notice;
    std::size_t threads = 0;
    for (const auto& each : loaded) threads += each.threads.size();
    ASSERT_GE(threads, tasks + 1) << "the last page holds entries or runs, which have placeholders";
    if (cut % 64 != 1) continue;
    std::optional<std::string> second;
    EXPECT_EQ(load(&second).size(), loaded.size());
    EXPECT_EQ(second, std::nullopt) << "told once";
  }
}

TEST_F(StoredConversations, WhatIsNoStoreIsKeptAsideUnchanged) {
  const std::string header("SQLite format 3\0", 16);
  const std::pair<std::string, std::string_view> cases[] = {
      {"x", "not a store"},
      {std::string(5000, 'x'), "not a store"},
      {header.substr(0, 15) + std::string(4081, '\xFF'), "not a store"},
      {header + std::string(4080, '\xFF'), "cut short"},
      {header.substr(0, 7), "cut short"},
      {header + std::string(20, '\0'), "cut short"},
  };
  for (const auto& [content, reason] : cases) {
    clear();
    folder_.file("conversations.sqlite", content);
    std::optional<std::string> notice;
    EXPECT_EQ(load(&notice).size(), 1U);
    const auto kept = quarantined();
    ASSERT_EQ(kept.size(), 1U);
    EXPECT_EQ(TemporaryFolder::contentOf(kept[0]), content);
    ASSERT_TRUE(notice);
    EXPECT_TRUE(notice->contains(kept[0])) << *notice;
    EXPECT_TRUE(notice->contains(reason)) << *notice;
  }
}

TEST_F(StoredConversations, FileOfANewerVersionIsRefusedAndStays) {
  const auto tree = makeStore(1);
  run("PRAGMA user_version = 99");
  WorkspaceStore store(*defaults_, folder_.path());
  EXPECT_FALSE(store.save(store.load(now)));
  ASSERT_TRUE(store.notice());
  EXPECT_TRUE(store.notice()->contains("a newer version")) << *store.notice();
  EXPECT_TRUE(quarantined().empty());
  run("PRAGMA user_version = 1");
  EXPECT_EQ(load(), tree);
}

TEST_F(StoredConversations, EmptyFileIsTold) {
  folder_.file("conversations.sqlite", "");
  std::optional<std::string> notice;
  EXPECT_EQ(load(&notice).size(), 1U);
  ASSERT_TRUE(notice);
  EXPECT_TRUE(notice->contains("was empty")) << *notice;
}

TEST_F(StoredConversations, FileThatVanishesIsTold) {
  WorkspaceStore store(*defaults_, folder_.path());
  const auto tree = store.load(now);
  std::filesystem::rename(file(), folder_ / "elsewhere");
  EXPECT_FALSE(store.save(tree));
  EXPECT_TRUE(store.lastError().contains("no longer there")) << store.lastError();
}

TEST_F(StoredConversations, TaskWhoseHeadIsDamagedHasTheSameIdAtEachStart) {
  const auto whole = makeStore(1);
  for (const char* head : {"", "{}", "{\"id\":\""}) {
    run(std::string("UPDATE heads SET record = '") + head +
        "' WHERE number = (SELECT max(number) FROM heads)");
    const auto first = load();
    EXPECT_EQ(load()[1].threads[0].id, first[1].threads[0].id);
    EXPECT_EQ(first[1].threads[0].entries, whole[1].threads[0].entries);
  }
}

TEST_F(StoredConversations, DamagedPiecesHurtNothingElse) {
  struct Case {
    const char* what;
    std::string sql;
  } cases[] = {
      {"entry", "UPDATE entries SET record = '{' WHERE number = (SELECT min(number) FROM entries)"},
      {"lost entry", "DELETE FROM entries WHERE number = (SELECT min(number) FROM entries)"},
      {"unknown kind",
       "UPDATE entries SET record = replace(record, 'user', 'martian')"
       " WHERE number = (SELECT min(number) FROM entries)"},
      {"head", "UPDATE heads SET record = '' WHERE number = (SELECT max(number) FROM heads)"},
      {"lost head", "DELETE FROM heads WHERE number = (SELECT max(number) FROM heads)"},
      {"lost row", "DELETE FROM threads WHERE number = (SELECT max(number) FROM threads)"},
      {"run", "UPDATE runs SET record = 'x' WHERE number = (SELECT max(number) FROM runs)"},
      {"project", "UPDATE workspaces SET head = '[]' WHERE head LIKE '%project%'"},
  };
  const auto whole = makeStore(3);
  const std::string stored = TemporaryFolder::contentOf(file());
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    clear();
    folder_.file("conversations.sqlite", stored);
    run(each.sql);
    WorkspaceStore store(*defaults_, folder_.path());
    std::string told;
    store.onNotice = [&](std::string_view sentence) { told += sentence; };
    auto loaded = store.load(now);
    told = store.notice().value_or("");
    std::size_t threads = 0, entries = 0, same = 0;
    for (const auto& workspace : loaded) {
      for (const auto& thread : workspace.threads) {
        ++threads;
        entries +=
            static_cast<std::size_t>(std::distance(thread.entries.begin(), thread.entries.end()));
        same += std::ranges::count(whole[1].threads, thread) > 0 ? 1U : 0U;
      }
    }
    EXPECT_GE(threads, 4U);
    EXPECT_EQ(entries, 9U);
    EXPECT_GE(same, 2U) << "the others are as they were";
    const bool isTold = !told.empty() || std::string_view(each.what) == "lost row";
    EXPECT_TRUE(isTold);
    EXPECT_EQ(quarantined().size(), told.empty() ? 0U : 1U);
    for (const auto& kept : quarantined()) EXPECT_TRUE(told.contains(kept)) << told;

    // Life goes on, and nothing of the damaged piece is written over by that.
    loaded[0].threads[0].title = "Another";
    EXPECT_TRUE(store.save(loaded)) << store.lastError();
    WorkspaceStore again(*defaults_, folder_.path());
    EXPECT_EQ(again.load(now)[0].threads[0].title, "Another");
    for (const auto& workspace : again.load(now)) {
      for (const auto& thread : workspace.threads) (void)thread.entries.begin();
    }
    EXPECT_LE(quarantined().size(), 1U) << "one copy, however often it is met";
  }
}

TEST_F(StoredConversations, DamageThatAWriteMeetsIsMendedWhileTheProgramRuns) {
  const auto spoilPages = [](std::string& content) {
    for (std::size_t page = 4096; page < content.size(); page += 4096) {
      // The page with the beginning of that entry: the rest lies in pages of its own.
      if (content.substr(page, 4096).contains("{\"id\":\"b\",\"kind\":\"user\",\"text\":\"%")) {
        content.replace(page, 4096, std::string(4096, '\xFF'));
      }
    }
  };
  const auto spoilFreeList = [](std::string& content) {
    content.replace(32, 8, std::string("\0\0\x7F\xFF\0\0\0\5", 8));  // first page, count
  };
  const std::function<void(std::string&)> faults[] = {spoilPages, spoilFreeList};
  for (const auto& fault : faults) {
    clear();
    auto tree = project(20);
    tree[0].threads[10].entries[1].text = std::string(9000, '%');
    {
      WorkspaceStore store(*defaults_, folder_.path());
      store.load(now);
      ASSERT_TRUE(store.save(tree));
    }
    std::string content = TemporaryFolder::contentOf(file());
    fault(content);
    folder_.file("conversations.sqlite", content);
    WorkspaceStore store(*defaults_, folder_.path());
    auto loaded = store.load(now);
    std::string told;
    store.onNotice = [&](std::string_view sentence) { told += sentence; };
    for (auto& thread : loaded[1].threads) thread.entries[1].text = "changed";
    loaded[1].threads[0].entries.append(entryWith("d", std::string(100'000, 'd')));
    EXPECT_TRUE(store.save(loaded)) << store.lastError();
    EXPECT_TRUE(told.contains("mended")) << told;
    const auto kept = quarantined();
    EXPECT_TRUE(std::ranges::any_of(kept, [&](const std::string& path) {
      return path.contains("could not be read") && told.contains(path);
    })) << told;
    EXPECT_TRUE(store.save(loaded)) << "also by connections that were open before";
    std::optional<std::string> notice;
    EXPECT_EQ(load(&notice), loaded);
    EXPECT_EQ(notice, std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(file() + ".mending"));
  }
}

TEST_F(StoredConversations, DamageThatCannotBeMendedYetIsMendedLater) {
  makeStore(3);
  std::string content = TemporaryFolder::contentOf(file());
  content.replace(32, 8, std::string("\0\0\x7F\xFF\0\0\0\5", 8));
  folder_.file("conversations.sqlite", content);
  const int status = tests::inChild([&] {
    WorkspaceStore store(*defaults_, folder_.path());
    auto loaded = store.load(now);
    loaded[1].threads[0].entries.append(entryWith("d", std::string(100'000, 'd')));
    if (!tests::limitFileSize(10'000)) return 1;
    if (store.save(loaded) || !quarantined().empty()) return 2;
    if (!store.lastError().contains("are damaged") || !store.lastError().contains("room")) return 3;
    if (!tests::limitFileSize(100'000'000)) return 4;
    if (!store.write({})) return 5;
    return load() == loaded && quarantined().size() == 1 ? 0 : 6;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(StoredConversations, CanBeLookedAtAndExportedWhereNothingCanBeWritten) {
  const std::string volume = folder_.folder("volume");
  for (const bool isFull : {true, false}) {
    for (const bool hasLog : {true, false}) {
      SCOPED_TRACE(testing::Message()
                   << (isFull ? "full" : "read-only") << (hasLog ? ", log" : ""));
      tests::expectOnSmallVolume(volume, "1m", [&] {
        const auto tree = project(3);
        const int made = tests::inChild([&] {  // which dies with its log, or not
          auto store = std::make_unique<WorkspaceStore>(*defaults_, volume);
          store->load(now);
          if (!store->save(tree)) return 1;
          if (hasLog) (void)store.release();
          return 0;
        });
        if (made != 0 || std::filesystem::exists(volume + "/conversations.sqlite-wal") != hasLog) {
          return 1;
        }
        if (hasLog) std::filesystem::remove(volume + "/conversations.sqlite-shm");
        if (isFull) {
          std::ofstream rest(volume + "/rest");
          rest << std::string(2 << 20, 'x');
        } else if (!tests::makeReadOnly(volume)) {
          return 2;
        }
        WorkspaceStore store(*defaults_, volume);
        const auto seen = store.peek();
        if (!seen || seen->workspaces.back() != tree[0] || !seen->problems->empty()) return 3;
        const auto exported = store.exportDocument();
        if (!exported || exported->threads < 3 || exported->notice) return 4;
        // A change is not lost without a word.
        auto changed = store.load(now);
        changed.back().threads[0].title = std::string(100'000, 't');
        return !store.save(changed) && !store.lastError().empty() ? 0 : 5;
      });
    }
  }
}

TEST_F(StoredConversations, WhatCannotBeKeptAsideIsNeverWrittenOver) {
  if (geteuid() == 0) {
    const std::string volume = folder_.folder("volume");
    tests::expectOnSmallVolume(volume, "1m", [&] {
      folder_.file("volume/conversations.sqlite", "precious");
      if (!tests::makeReadOnly(volume)) return 1;
      WorkspaceStore store(*defaults_, volume);
      auto loaded = store.load(now);
      if (loaded.size() != 1 || !store.notice() || store.lastError().empty()) return 2;
      if (store.save(loaded) || store.lastError().empty()) return 3;
      return TemporaryFolder::contentOf(volume + "/conversations.sqlite") == "precious" ? 0 : 4;
    });
    return;
  }
  folder_.file("closed/conversations.sqlite", "precious");
  chmod((folder_ / "closed").c_str(), 0500);
  WorkspaceStore store(*defaults_, folder_ / "closed");
  EXPECT_FALSE(store.save(store.load(now)));
  EXPECT_TRUE(store.notice());
  EXPECT_EQ(TemporaryFolder::contentOf(folder_ / "closed/conversations.sqlite"), "precious");
  chmod((folder_ / "closed").c_str(), 0700);
}

// ---- failing and dying --------------------------------------------------------------------------

TEST_F(StoredConversations, SaveThatFailsIsMadeUpForByTheNext) {
  const int status = tests::inChild([&] {
    WorkspaceStore store(*defaults_, folder_.path());
    auto tree = store.load(now);
    if (!tests::limitFileSize(300'000)) return 1;
    ChatThread& thread = tree[0].threads[0];
    thread.entries.append(entryWith("large", std::string(2'000'000, 'x')));
    if (store.save(tree)) return 2;
    if (store.lastError().empty() || store.lastError().contains('\n')) return 3;
    thread.entries.append(entryWith("small", "y"));
    if (store.save(tree)) return 4;
    if (!tests::limitFileSize(100'000'000)) return 5;
    thread.entries.find("small")->text = "z";
    if (!store.save(tree)) return 6;
    return WorkspaceStore(*defaults_, folder_.path()).load(now) == tree ? 0 : 7;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(load()[0].threads[0].entries.size(), 2U);
}

TEST_F(StoredConversations, EntryThatIsTooLongForTheStoreIsCutAndAllElseIsSaved) {
  sqlite3* database = nullptr;
  ASSERT_EQ(sqlite3_open(":memory:", &database), SQLITE_OK);
  EXPECT_GT(sqlite3_limit(database, SQLITE_LIMIT_LENGTH, -1), int{StoredTree::largestRow});
  sqlite3_close(database);

  auto tree = makeStore(1);
  {
    WorkspaceStore store(*defaults_, folder_.path(), 4'000);
    tree = store.load(now);
    ChatThread& thread = tree[1].threads[0];
    // In a row a control character takes six bytes.
    thread.entries.append(entryWith("long", std::string(100'000, '\1')));
    thread.entries.append(entryWith("next", "still here"));
    thread.runs.emplace_back().id = Uuid::random();
    thread.title = "Renamed";
    EXPECT_TRUE(store.save(tree)) << store.lastError();
  }
  const auto loaded = load();
  ChatThread& thread = tree[1].threads[0];
  const auto* cut = loaded[1].threads[0].entries.find("long");
  ASSERT_TRUE(cut);
  EXPECT_TRUE(cut->text.starts_with("\1\1\1")) << cut->text;
  EXPECT_TRUE(cut->text.ends_with("(The rest is too long to be stored.)"));
  thread.entries.find("long")->text = cut->text;
  EXPECT_EQ(loaded, tree);
}

TEST_F(StoredConversations, AreForTheirOwnerOnly) {
  const mode_t mask = umask(0);
  WorkspaceStore store(*defaults_, folder_.path());
  EXPECT_TRUE(store.save(store.load(now)));
  for (const auto& name : folder_.names()) {
    if (!name.starts_with("conversations")) continue;
    EXPECT_EQ(TemporaryFolder::modeOf(folder_ / name), 0600U) << name;
  }
  umask(mask);
}

TEST_F(StoredConversations, SuddenDeathLeavesTheLastSaveOrTheOneUnderWay) {
  for (int round = 0; round < 12; ++round) {
    int toTest[2];
    ASSERT_EQ(pipe(toTest), 0);
    const pid_t child = fork();
    if (child == 0) {
      // Counts up in several places at once, and says which saves have returned.
      WorkspaceStore store(*defaults_, folder_.path());
      auto tree = store.load(now);
      ChatThread& thread = tree[0].threads[0];
      if (thread.entries.empty()) thread.entries.append(entryWith("0", ""));
      int count = 0;
      while (true) {
        const std::string text = std::to_string(round) + "." + std::to_string(++count);
        thread.title = text;
        thread.entries[0].text = text + std::string(20'000, '.');
        thread.entries.append(entryWith(text, text));
        if (!store.save(tree)) _exit(1);
        if (write(toTest[1], &count, sizeof count) != sizeof count) _exit(2);
      }
    }
    int saved = 0;
    for (int i = 0; i < 3 + round * 4; ++i) {
      ASSERT_EQ(read(toTest[0], &saved, sizeof saved), static_cast<ssize_t>(sizeof saved));
    }
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    close(toTest[1]);
    while (read(toTest[0], &saved, sizeof saved) == static_cast<ssize_t>(sizeof saved)) {
    }
    close(toTest[0]);
    std::optional<std::string> notice;
    const ChatThread thread = load(&notice)[0].threads[0];
    EXPECT_EQ(notice, std::nullopt);
    const std::string last = std::to_string(round) + "." + std::to_string(saved);
    const std::string next = std::to_string(round) + "." + std::to_string(saved + 1);
    EXPECT_TRUE(thread.title == last || thread.title == next) << thread.title << " " << last;
    EXPECT_EQ(thread.entries.back().text, thread.title) << "never half";
    EXPECT_TRUE(thread.entries[0].text.starts_with(thread.title + "."));
  }
}

// ---- documents ----------------------------------------------------------------------------------

TEST_F(StoredConversations, DocumentOfAnEarlierVersionIsTakenOver) {
  const auto tree = project(3);
  defaults_->setData(documentKey, encodeWorkspaces(tree, conversationJson));
  std::optional<std::string> notice;
  const auto loaded = load(&notice);
  ASSERT_EQ(loaded.size(), 2U);
  EXPECT_EQ(loaded[1], tree[0]);
  EXPECT_EQ(notice, std::nullopt);
  EXPECT_FALSE(defaults_->data(documentKey)) << "it has one place";
  EXPECT_EQ(load(), loaded);
}

TEST_F(StoredConversations, DocumentThatCannotBeTakenOverIsKeptAside) {
  const std::string document = encodeWorkspaces(project(1), conversationJson);
  for (const auto& content : {std::string("[{"), document}) {
    SCOPED_TRACE(content);
    clear();
    const auto before = makeStore(2);
    ASSERT_TRUE(defaults_->setData(documentKey, content));
    std::optional<std::string> notice;
    EXPECT_EQ(load(&notice), before);
    const auto kept = quarantined();
    ASSERT_EQ(kept.size(), 1U);
    EXPECT_EQ(TemporaryFolder::contentOf(kept[0]), content);
    EXPECT_EQ(TemporaryFolder::modeOf(kept[0]), 0600U) << "for their owner alone";
    ASSERT_TRUE(notice);
    EXPECT_TRUE(notice->contains(kept[0])) << *notice;
    EXPECT_FALSE(notice->contains("()")) << "it says why: " << *notice;
    EXPECT_FALSE(defaults_->data(documentKey));
  }
}

TEST_F(StoredConversations, SecondUseOfAnIdGetsAFreshOne) {
  auto tree = project(2);
  tree[0].threads[1].id = tree[0].threads[0].id;
  defaults_->setData(documentKey, encodeWorkspaces(tree, conversationJson));
  const auto loaded = load();
  EXPECT_EQ(loaded[1].threads[0], tree[0].threads[0]);
  EXPECT_NE(loaded[1].threads[1].id, tree[0].threads[1].id);
  EXPECT_EQ(loaded[1].threads[1].entries, tree[0].threads[1].entries);
  EXPECT_EQ(load(), loaded);
}

TEST_F(StoredConversations, ExportIsTheDocumentAndImportTakesIt) {
  const auto tree = makeStore(5);
  WorkspaceStore store(*defaults_, folder_.path());
  const auto exported = store.exportDocument();
  ASSERT_TRUE(exported) << exported.error();
  EXPECT_EQ(exported->document, encodeWorkspaces(tree, conversationJson));
  EXPECT_EQ(exported->notice, std::nullopt);

  auto other = tree;
  other[1].threads.erase(other[1].threads.begin());
  other[1].threads[0].entries.append(entryWith("d", "other"));
  other.push_back(Workspace::makeProject("/nowhere", now));
  const auto imported = store.importDocument(encodeWorkspaces(other, conversationJson), now);
  ASSERT_TRUE(imported) << imported.error();
  EXPECT_EQ(imported->workspaces, 3U);
  EXPECT_EQ(imported->threads, 6U);
  EXPECT_EQ(imported->withoutFolder, 1U);
  EXPECT_EQ(TemporaryFolder::contentOf(imported->quarantined), exported->document);
  other.pop_back();  // whose folder is not there
  EXPECT_EQ(load(), other);

  // And back.
  ASSERT_TRUE(WorkspaceStore(*defaults_, folder_.path()).importDocument(exported->document, now));
  EXPECT_EQ(load(), tree);
}

TEST_F(StoredConversations, ImportedPathsAreWrittenAsThePrograms) {
  auto tree = project(1);
  const std::string folder = tree[0].path;
  tree[0].path += "/./";
  ASSERT_TRUE(WorkspaceStore(*defaults_, folder_.path())
                  .importDocument(encodeWorkspaces(tree, conversationJson), now));
  const auto loaded = load();
  ASSERT_EQ(loaded.size(), 2U);
  EXPECT_EQ(loaded[1].path, folder);
  EXPECT_EQ(loaded[1].threads, tree[0].threads);
}

TEST_F(StoredConversations, ImportThatIsRefusedChangesNothing) {
  const auto tree = makeStore(2);
  for (const char* document : {"", "{}", "[{}]", "[1", R"([{"id":"x"}])"}) {
    SCOPED_TRACE(document);
    const auto refused = WorkspaceStore(*defaults_, folder_.path()).importDocument(document, now);
    ASSERT_FALSE(refused);
    EXPECT_TRUE(refused.error().starts_with("The document cannot be read: ")) << refused.error();
    EXPECT_EQ(load(), tree);
    EXPECT_TRUE(quarantined().empty());
  }
}

}  // namespace
}  // namespace vantrell
