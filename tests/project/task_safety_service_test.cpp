#include <fmt/format.h>
#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/files/files.h"
#include "project/task_safety_fixture.h"

namespace {

/// What stands when somebody waits for the disk.
std::function<int()> onSync;  // NOLINT

}  // namespace

extern "C" int syncfs(int) noexcept {
  return onSync ? onSync() : 0;
}

namespace vantrell::tests {

namespace fs = std::filesystem;

using TaskSafetyServiceTest = TaskSafetyFixture;

TEST_F(TaskSafetyServiceTest, ArchivesNothingOfACleanRepository) {
  const auto made = taken();
  EXPECT_EQ(made.archivePath, support / ("TaskSafety/checkpoints/" + ids + "/") +
                                  fs::path(made.archivePath).filename().native());
  EXPECT_EQ(Uuid::parse(fs::path(made.archivePath).filename().native()), made.id);
  EXPECT_EQ(support.names("TaskSafety/checkpoints/" + ids + "/" +
                          fs::path(made.archivePath).filename().native()),
            (std::set<std::string>{"staged.patch", "working.patch"}));
  struct stat info{};
  ASSERT_EQ(stat(made.archivePath.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700);
  EXPECT_EQ(fs::file_size(made.archivePath + "/working.patch"), 0);
  EXPECT_EQ(made.changedFileCount, 0);
  EXPECT_EQ(made.baseRevision, runGit(repository.path(), {"rev-parse", "HEAD"}).text());
  EXPECT_EQ(made.conversationEntryCount, 3);
  EXPECT_TRUE(service.restore(made, repository.path()));
}

TEST_F(TaskSafetyServiceTest, CountsLinesOfTheStatusOrUntrackedFilesWhicheverAreMore) {
  repository.file("a.txt", "two\n");
  for (const auto* name : {"x", "y", "z"}) repository.file(name, "new");
  EXPECT_EQ(taken().changedFileCount, 4);
  for (const auto* name : {"folder/1", "folder/2", "folder/3"}) repository.file(name, "new");
  EXPECT_EQ(taken().changedFileCount, 6) << "the status has one line for the folder";
}

TEST_F(TaskSafetyServiceTest, RefusesWhatIsNoArchiveOfOursBeforeItTouchesAnything) {
  auto made = taken();
  repository.file("a.txt", "precious");
  auto elsewhere = made;
  elsewhere.archivePath = support.folder("TaskSafety/checkpoints") + "/../../mine";
  support.folder("mine");
  auto gone = made;
  gone.archivePath += "0";
  auto unborn = made;
  unborn.baseRevision.reset();
  auto odd = made;
  odd.baseRevision = "--staged";
  for (const auto& each : {elsewhere, gone, unborn, odd}) {
    const auto restored = service.restore(each, repository.path());
    ASSERT_FALSE(restored);
    EXPECT_EQ(restored.error().description(),
              "The checkpoint archive is missing or is not owned by vantrell.");
  }
  // Half a patch is found out beforehand as well.
  repository.file("a.txt", "changed\n");
  made = taken();
  fs::resize_file(made.archivePath + "/working.patch", 100);
  repository.file("a.txt", "precious");
  const auto restored = service.restore(made, repository.path());
  ASSERT_FALSE(restored);
  EXPECT_FALSE(restored.error().mayHaveChangedFiles);
  EXPECT_EQ(content("a.txt"), "precious");
}

TEST_F(TaskSafetyServiceTest, SaysWhyThereIsNoCheckpointAndLeavesNothing) {
  const TemporaryFolder plain;
  const auto none = capture(plain.path());
  ASSERT_FALSE(none);
  EXPECT_EQ(none.error().description(), "This project is not a Git repository.");

  const GitRepository unborn;
  const auto early = capture(unborn.path());
  ASSERT_FALSE(early);
  EXPECT_TRUE(early.error().description().contains("no commit yet"));

  repository.git({"checkout", "--quiet", "-b", "other"});
  repository.file("a.txt", "theirs\n");
  repository.commit();
  repository.git({"checkout", "--quiet", "main"});
  repository.file("a.txt", "ours\n");
  repository.commit();
  runGit(repository.path(), {"merge", "other"});
  const auto merging = capture(repository.path());
  ASSERT_FALSE(merging);
  EXPECT_TRUE(merging.error().description().contains("merge conflicts"));
  EXPECT_EQ(archives(), 0);
}

TEST_F(TaskSafetyServiceTest, BoundsWhatStandsBetweenTheUserAndTheAnswer) {
  const std::string big = repository.file("big", "");
  fs::resize_file(big, TaskSafetyService::automaticBytes + 1);  // all holes
  EXPECT_FALSE(capture(repository.path(), WorkspaceCheckpointKind::automatic));
  EXPECT_EQ(archives(), 0);
}

TEST_F(TaskSafetyServiceTest, KeepsIgnoredFilesWhateverTheRulesBecome) {
  const auto made = taken();
  // Ignored by a rule that the restore takes back; in no checkpoint.
  repository.file(".gitignore", "*.log\nsecret\nout/\n");
  repository.file("secret", "key");
  repository.file("out/made", "long work");
  // Untracked now, and ignored: the restore has to write over it.
  repository.git({"rm", "--quiet", "--cached", "a.txt"});
  repository.file(".git/info/exclude", "a.txt\n");
  repository.file("a.txt", "mine");
  const auto recovery = taken();
  const auto restored = service.restore(made, repository.path(), &recovery);
  ASSERT_TRUE(restored) << restored.error().description();
  EXPECT_EQ(content("secret"), "key");
  EXPECT_EQ(content("out/made"), "long work");
  EXPECT_EQ(content("a.txt"), "one\n");
  EXPECT_TRUE(restored->back().contains("secret")) << "what stayed is named";
  const auto before = taken();
  ASSERT_TRUE(service.restore(recovery, repository.path(), &before));
  EXPECT_EQ(content("a.txt"), "mine");
}

TEST_F(TaskSafetyServiceTest, BringsIgnoredFilesBackBesideWhatGitCannotJudge) {
  // One below a link by then, and names that mean something in git's own paths.
  repository.file(".gitignore", "kept\n\\[part*\n");
  fs::create_symlink("part", repository / "room");
  const auto made = taken();
  repository.file(".gitignore", "");
  fs::remove(repository / "room");
  repository.folder("room/empty");
  repository.file("room/kept", "below");
  repository.file(":(top)odd/kept", "odd");
  repository.file("kept", "plain");
  repository.file("[part]*", "no wild card");
  const auto recovery = taken();
  const auto restored = service.restore(made, repository.path(), &recovery);
  ASSERT_TRUE(restored) << restored.error().description();
  EXPECT_EQ(fs::read_symlink(repository / "room"), "part");
  EXPECT_FALSE(files::exists(repository / "part/kept"));
  EXPECT_EQ(content(":(top)odd/kept"), "odd");
  EXPECT_EQ(content("kept"), "plain");
  EXPECT_EQ(content("[part]*"), "no wild card");
}

TEST_F(TaskSafetyServiceTest, LeavesSubmodulesAndRepositoriesInsideAlone) {
  const GitRepository library;
  library.file("lib", "1\n");
  library.commit();
  repository.git({"-c", "protocol.file.allow=always", "submodule", "--quiet", "add", library.path(),
                  "module"});
  repository.commit();
  GitRepository::git(repository.folder("nested"), {"init", "--quiet"});
  repository.file("nested/n", "1\n");
  GitRepository::git(repository.folder("told"), {"init", "--quiet"});
  GitRepository::git(repository / "told", {"commit", "--quiet", "--allow-empty", "-m", "A commit"});
  repository.git({"add", "-N", "told"});
  const std::string index = repository.git({"ls-files", "--stage"});
  repository.file("module/lib", "2\n");
  const auto made = taken();
  repository.file("nested/n", "2\n");
  repository.file("module/lib", "3\n");
  const auto recovery = taken();
  const auto restored = service.restore(made, repository.path(), &recovery);
  ASSERT_TRUE(restored) << restored.error().description();
  EXPECT_EQ(content("module/lib"), "3\n");
  EXPECT_EQ(content("nested/n"), "2\n");
  EXPECT_EQ(repository.git({"ls-files", "--stage"}), index);
  EXPECT_EQ(restored->size(), 2);
  EXPECT_TRUE(service.createIsolatedWorktree(workspace, thread, repository.path()));

  fs::remove_all(repository / "nested");
  const auto again = taken();
  ASSERT_TRUE(service.restore(made, repository.path(), &again));
  EXPECT_EQ(content("nested/n"), "1\n") << "one that has gone comes back";

  fs::remove_all(repository / "nested/.git");
  repository.file("nested/own.log", "ignored, so in no checkpoint");
  const auto last = taken();
  const auto refused = service.restore(made, repository.path(), &last);
  ASSERT_FALSE(refused);
  EXPECT_TRUE(refused.error().message.contains("Nothing was changed"));
  EXPECT_EQ(content("nested/own.log"), "ignored, so in no checkpoint");
}

TEST_F(TaskSafetyServiceTest, BringsStagedSubmodulesBackWhateverDiffsLeaveOut) {
  const GitRepository library;
  const std::string first = library.commit();
  const std::string second = library.commit("Another");
  repository.git({"-c", "protocol.file.allow=always", "submodule", "--quiet", "add", library.path(),
                  "module"});
  repository.git({"config", "core.autocrlf", "true"});
  const auto staged = [&] { return repository.git({"ls-files", "--stage", "module"}); };
  const auto stage = [&](const std::string& revision) {
    repository.git({"update-index", "--cacheinfo", "160000," + revision + ",module"});
  };
  for (const auto* where : {".gitmodules", ".git/config"}) {
    repository.git({"config", "-f", where, "submodule.module.ignore", "all"});
    repository.commit();
    stage(first);
    const std::string then = staged();
    const auto made = taken();
    stage(second);
    const std::string now = staged();
    const auto recovery = taken();
    ASSERT_TRUE(service.restore(made, repository.path(), &recovery));
    EXPECT_EQ(staged(), then) << where;
    const auto before = taken();
    ASSERT_TRUE(service.restore(recovery, repository.path(), &before));
    EXPECT_EQ(staged(), now) << where;
    EXPECT_FALSE(files::exists(recovery.archivePath + "/exact/module")) << "it is not ours";
    repository.git({"config", "-f", where, "--unset", "submodule.module.ignore"});
  }
}

TEST_F(TaskSafetyServiceTest, SparesWhatGitWasToldNotToLookAt) {
  repository.file("c.txt", "one\n");
  repository.commit();
  const auto made = taken();
  repository.file("part/b.txt", "two\n");
  repository.file("c.txt", "two\n");
  repository.commit();
  repository.git({"update-index", "--assume-unchanged", "a.txt"});
  repository.git({"update-index", "--skip-worktree", "part/b.txt"});
  repository.file("a.txt", "mine\n");
  repository.file("part/b.txt", "mine\n");
  const auto recovery = taken();
  const auto restored = service.restore(made, repository.path(), &recovery);
  ASSERT_TRUE(restored) << restored.error().description();
  EXPECT_EQ(content("a.txt"), "mine\n");
  EXPECT_EQ(content("part/b.txt"), "mine\n");
  EXPECT_EQ(content("c.txt"), "one\n");
  ASSERT_EQ(restored->size(), 1);
  EXPECT_TRUE(restored->front().contains("a.txt, part/b.txt"));
}

TEST_F(TaskSafetyServiceTest, LosesNothingThatChangedAfterTheRecoveryCheckpoint) {
  repository.file("new", "one\n");
  const auto made = taken();
  const auto stale = taken();
  repository.file("a.txt", "just now\n");
  const auto refused = service.restore(made, repository.path(), &stale);
  ASSERT_FALSE(refused);
  EXPECT_FALSE(refused.error().mayHaveChangedFiles);
  EXPECT_EQ(content("a.txt"), "just now\n");

  const auto recovery = taken();
  repository.file("new", "of this moment\n");
  ASSERT_TRUE(service.restore(made, repository.path(), &recovery));
  EXPECT_EQ(content("new"), "one\n");
  EXPECT_EQ(TemporaryFolder::contentOf(recovery.archivePath + "/untracked/new"),
            "of this moment\n");
}

TEST_F(TaskSafetyServiceTest, HasTheRecoveryCheckpointOnTheDiskBeforeAnythingGoes) {
  const auto made = taken();
  repository.file("a.txt", "two\n");
  repository.file("new", "here");
  const auto recovery = taken();
  std::vector<std::string> seen;
  onSync = [&] {
    std::string all = content("a.txt");
    for (const auto* name : {"new", "late"}) {
      const auto saved = fmt::format("{}/untracked/{}", recovery.archivePath, name);
      all += fmt::format("{} {} {}, ", name, content(name), TemporaryFolder::contentOf(saved));
    }
    seen.push_back(all);
    errno = EIO;
    if (seen.size() == 1) return -1;
    repository.file("late", "too");  // made by somebody just now
    return 0;
  };
  const auto failed = service.restore(made, repository.path(), &recovery);
  ASSERT_FALSE(failed);
  EXPECT_FALSE(failed.error().mayHaveChangedFiles);
  EXPECT_TRUE(failed.error().description().contains("Input/output error"));
  const auto restored = service.restore(made, repository.path(), &recovery);
  onSync = nullptr;
  ASSERT_TRUE(restored) << restored.error().description();
  const std::string before = "two\nnew here here, late  , ";
  EXPECT_EQ(seen, (std::vector<std::string>{before, before}));
  EXPECT_FALSE(files::exists(repository / "new"));
  EXPECT_EQ(content("late"), "too") << "what no checkpoint has stays";
}

TEST_F(TaskSafetyServiceTest, KeepsTheModesOfFoldersThatOnlyItsOwnerMayLookInto) {
  const std::vector<std::string> folders{"private", "private/empty", "private/with file", "empty"};
  const auto close = [&](const std::string& name) {
    fs::permissions(repository.folder(name), fs::perms::owner_all);
  };
  std::ranges::for_each(folders, close);
  repository.file("private/with file/key", "secret");
  const auto made = taken();
  for (const auto* name : {"private", "empty"}) fs::remove_all(repository / name);
  ASSERT_TRUE(service.restore(made, repository.path()));
  const auto worktree = service.createIsolatedWorktree(workspace, thread, repository.path());
  ASSERT_TRUE(worktree);
  for (const auto& name : folders) {
    EXPECT_EQ(fs::status(repository / name).permissions(), fs::perms::owner_all) << name;
    EXPECT_EQ(fs::status(worktree->path + "/" + name).permissions(), fs::perms::owner_all) << name;
  }
}

TEST_F(TaskSafetyServiceTest, GivesBackTheBytesThatARestoreTookForUnchanged) {
  repository.git({"config", "core.autocrlf", "true"});
  const auto made = taken();
  // For git, the ends of lines are no change: "by a commit" differs from the revision alone, "by a
  // patch" is changed in the checkpoint, and "touched" is as it was.
  const std::vector<std::string> names{"by a commit", "by a patch", "touched"};
  const std::string mixed = "one\r\ntwo\nthree\r\n";
  repository.git({"checkout", "--quiet", "-b", "earlier"});
  for (const auto& name : names) repository.file(name, mixed);
  repository.commit();
  repository.file("by a patch", "changed\n");
  const auto changed = taken();
  for (const auto& name : names) repository.file(name, mixed);
  for (const auto& each : {made, changed}) {
    // Git looks into all others, as it does not know yet that they are unchanged.
    repository.git({"add", "by a commit", "by a patch"});
    const auto recovery = taken();
    ASSERT_TRUE(service.restore(each, repository.path(), &recovery));
    const auto before = taken();
    ASSERT_TRUE(service.restore(recovery, repository.path(), &before));
    for (const auto& name : names) EXPECT_EQ(content(name), mixed) << name;
  }
}

TEST_F(TaskSafetyServiceTest, BringsBackTheBytesOfChangedFilesThatNoPatchSays) {
  repository.git({"config", "filter.strip.clean", "sed /output/d"});
  repository.git({"config", "core.autocrlf", "true"});
  repository.file(".gitattributes", "*.book filter=strip -text\n");
  repository.file("my.book", "one\n");
  repository.commit();
  const std::map<std::string, std::string> written{{"my.book", "two\noutput of a long night\n"},
                                                   {"a.txt", "one\r\ntwo\nthree\r\n"},
                                                   {"staged", "one\r\ntwo\nthree\r\n"}};
  for (const auto& [name, bytes] : written) repository.file(name, bytes);
  repository.git({"add", "staged"});
  const auto made = taken();
  for (const auto& [name, bytes] : written) repository.file(name, "other\n");
  ASSERT_TRUE(service.restore(made, repository.path()));
  for (const auto& [name, bytes] : written) EXPECT_EQ(content(name), bytes) << name;
}

TEST_F(TaskSafetyServiceTest, FollowsNoLinkOutOfTheProject) {
  const TemporaryFolder outside;
  outside.file("theirs", "untouched");
  repository.file("room/theirs", "ours");  // untracked
  const auto made = taken();
  fs::remove_all(repository / "room");
  fs::create_directory_symlink(outside.path(), repository / "room");
  repository.file(".git/info/exclude", "room\n");
  const auto recovery = taken();
  const auto restored = service.restore(made, repository.path(), &recovery);
  ASSERT_TRUE(restored) << restored.error().description();
  EXPECT_EQ(TemporaryFolder::contentOf(outside / "theirs"), "untouched");
  EXPECT_FALSE(fs::is_symlink(repository / "room"));
  EXPECT_EQ(content("room/theirs"), "ours");
}

// ---- worktrees ----------------------------------------------------------------------------------

TEST_F(TaskSafetyServiceTest, CopiesUncommittedWorkOfEveryKindIntoAWorktree) {
  repository.file("loop/x", "one\n");
  repository.commit();
  fs::remove_all(repository / "loop");
  fs::create_symlink("loop", repository / "loop");
  repository.file("a.txt", "staged\n");
  repository.git({"add", "a.txt"});
  repository.file("a.txt", "unstaged\n");
  fs::remove(repository / "part/b.txt");
  repository.file("new\nfile", "untracked");
  repository.file("tool", "#!\n");
  fs::permissions(repository / "tool", fs::perms::owner_all);
  fs::create_symlink("nowhere", repository / "dangling");
  repository.folder("empty/inside");
  repository.file("announced", "soon");
  repository.file("gone", "never");
  repository.file("now a link", "never");
  repository.git({"add", "-N", "announced", "gone", "now a link"});
  fs::remove(repository / "gone");
  fs::remove(repository / "now a link");
  fs::create_symlink("a.txt", repository / "now a link");
  repository.file("kept.log", "ignored");
  const std::string before = repository.git({"status", "--porcelain=v2", "--untracked-files=all"});

  const auto made = service.createIsolatedWorktree(workspace, thread, repository.path());
  ASSERT_TRUE(made) << made.error().description();
  EXPECT_EQ(made->path, support / ("TaskSafety/worktrees/" + ids));
  const auto status = {"status", "--porcelain=v2", "--untracked-files=all"};
  EXPECT_EQ(GitRepository::git(made->path, {status.begin(), status.end()}), before);
  EXPECT_EQ(repository.git({status.begin(), status.end()}), before) << "the project keeps its own";
  EXPECT_EQ(GitRepository::git(made->path, {"ls-files", "--stage"}),
            repository.git({"ls-files", "--stage"}));
  EXPECT_EQ(TemporaryFolder::contentOf(made->path + "/a.txt"), "unstaged\n");
  EXPECT_EQ(fs::read_symlink(made->path + "/dangling"), "nowhere");
  EXPECT_EQ(fs::read_symlink(made->path + "/loop"), "loop");
  EXPECT_TRUE(files::isExecutable(made->path + "/tool"));
  EXPECT_TRUE(files::isFolder(made->path + "/empty/inside"));
  EXPECT_FALSE(files::exists(made->path + "/kept.log"));

  // A second call changes nothing; another task does not see the first.
  std::ofstream(made->path + "/a.txt") << "work of the task\n";
  EXPECT_EQ(service.createIsolatedWorktree(workspace, thread, repository.path())->path, made->path);
  EXPECT_EQ(TemporaryFolder::contentOf(made->path + "/a.txt"), "work of the task\n");
  const auto other = service.createIsolatedWorktree(workspace, Uuid::random(), repository.path());
  EXPECT_EQ(TemporaryFolder::contentOf(other->path + "/a.txt"), "unstaged\n");
}

TEST_F(TaskSafetyServiceTest, GivesAPartOfARepositoryTheSamePartOfTheWorktree) {
  repository.file("part/b.txt", "two\n");
  repository.file("part/new", "untracked");
  const auto made = service.createIsolatedWorktree(workspace, thread, repository / "part");
  ASSERT_TRUE(made) << made.error().description();
  EXPECT_EQ(made->path, support / ("TaskSafety/worktrees/" + ids + "/part"));
  EXPECT_EQ(TemporaryFolder::contentOf(made->path + "/b.txt"), "two\n");
  EXPECT_EQ(TemporaryFolder::contentOf(made->path + "/new"), "untracked");
  EXPECT_EQ(service.createIsolatedWorktree(workspace, thread, repository / "part")->path,
            made->path);
}

TEST_F(TaskSafetyServiceTest, RestoresAPartWithoutAnyTrackedFile) {
  repository.file("fresh/x", "1");
  const auto captured = capture(repository / "fresh");
  ASSERT_TRUE(captured);
  repository.file("fresh/x", "2");
  repository.file("a.txt", "not ours\n");
  const auto restored = service.restore(captured->checkpoint, repository / "fresh");
  ASSERT_TRUE(restored) << restored.error().description();
  EXPECT_EQ(content("fresh/x"), "1");
  EXPECT_EQ(content("a.txt"), "not ours\n");
}

}  // namespace vantrell::tests
