// What goes wrong in a restore and around it is found out before the first file is touched, or does
// not matter. Everything with real git.
#include "project/restore_plan.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files/files.h"
#include "project/task_safety_fixture.h"

namespace vantrell::tests {

namespace fs = std::filesystem;

class RestorePlanTest : public TaskSafetyFixture {
 protected:
  /// Configures a filter for "boxed", which is committed with the content.
  void filter(std::string_view clean, std::string_view smudge, std::string_view content) {
    repository.file(".gitattributes", "boxed filter=box -text\n");
    repository.git({"config", "filter.box.required", "true"});
    repository.git({"config", "filter.box.clean", std::string(clean)});
    repository.git({"config", "filter.box.smudge", std::string(smudge)});
    repository.file("boxed", content);
    repository.commit();
  }
  /// The project's submodules, "module" and "ext/lib", not initialised.
  void addEmptySubmodules() {
    const std::string revision = repository.commit();
    for (const auto* path : {"module", "ext/lib"}) {
      repository.folder(path);
      repository.git(
          {"update-index", "--add", "--cacheinfo", fmt::format("160000,{},{}", revision, path)});
    }
    repository.git({"commit", "--quiet", "-m", "Submodules"});
  }

  Environment home;
};

TEST_F(RestorePlanTest, LeavesSubmodulesWithoutContentAlone) {
  addEmptySubmodules();
  const auto made = taken();
  repository.file("a.txt", "two\n");
  const auto changed = restoreTo(made);
  EXPECT_EQ(status(), "");
  repository.git({"commit", "--quiet", "--all", "--allow-empty", "-m", "All"});
  EXPECT_TRUE(repository.git({"ls-files"}).contains("ext/lib\nmodule\n"));
  // So are those of a worktree, which has them without content always.
  const auto worktree = service.createIsolatedWorktree(workspace, thread, repository.path());
  ASSERT_TRUE(worktree);
  EXPECT_EQ(GitRepository::git(worktree->path, {"status", "--porcelain"}), "");

  // A checkpoint without the folder, or with a file there, leads back to that.
  fs::remove(repository / "module");
  fs::remove(repository / "ext/lib");
  repository.file("ext/lib", "a file now");
  const std::string gone = status();
  const auto without = restoreTo(made);
  EXPECT_EQ(status(), "");
  EXPECT_TRUE(files::isFolder(repository / "module") && files::isFolder(repository / "ext/lib"));
  restoreTo(without);
  EXPECT_EQ(status(), gone);
  restoreTo(made);
  // What is in such a folder is nobody else's, and in no checkpoint.
  repository.file("ext/lib/mine", "work");
  EXPECT_TRUE(refusalOf(without).contains("\"ext/lib\" has to make room"));
  EXPECT_EQ(content("ext/lib/mine"), "work");
}

TEST_F(RestorePlanTest, OpensFoldersThatAreReadOnly) {
  // As a user whom modes hold back, which they do not with an administrator.
  if (geteuid() == 0) {
    for (const auto& each : {repository.path(), support.path()}) {
      ASSERT_EQ(chown(each.c_str(), 65534, 65534), 0);
      for (const auto& entry : fs::recursive_directory_iterator(each)) {
        ASSERT_EQ(lchown(entry.path().c_str(), 65534, 65534), 0);
      }
    }
    ASSERT_EQ(seteuid(65534), 0);
  }
  home.set("HOME", support.path());
  home.set("XDG_CONFIG_HOME", support.path());
  const auto made = taken();
  repository.file("cache/x/y/module", "downloaded");
  repository.file("part/b.txt", "two\n");
  for (const auto* folder : {"cache/x/y", "cache/x", "part"}) {
    chmod((repository / folder).c_str(), 0555);
  }
  const auto changed = restoreTo(made);
  EXPECT_FALSE(files::exists(repository / "cache"));
  EXPECT_EQ(content("part/b.txt"), "one\n");
  EXPECT_EQ(TemporaryFolder::modeOf(repository / "part"), 0555);
  const auto back = restoreTo(changed);
  EXPECT_EQ(content("cache/x/y/module"), "downloaded");
  EXPECT_EQ(content("part/b.txt"), "two\n");
  chmod((repository / "part").c_str(), 0755);
  if (getuid() != 0) return;
  // A folder of somebody else stays closed: nothing is touched.
  ASSERT_EQ(seteuid(0), 0);
  ASSERT_EQ(chown((repository / "cache/x/y").c_str(), 0, 0), 0);
  ASSERT_EQ(seteuid(65534), 0);
  EXPECT_TRUE(refusalOf(made).contains("cache/x/y\" cannot be written to"));
  EXPECT_EQ(content("part/b.txt"), "two\n");
  ASSERT_EQ(seteuid(0), 0);
}

TEST_F(RestorePlanTest, FindsOutBeforehandThatAFilterCannotRun) {
  filter("cat", "cat", "one\n");
  const auto clean = taken();
  repository.file("boxed", "two\n");
  const auto changed = taken();
  repository.file("boxed", "three\n");
  repository.file("a.txt", "three\n");
  repository.git({"config", "filter.box.smudge", "/no/such/program"});
  EXPECT_TRUE(refusalOf(clean).contains("Nothing was changed"));
  EXPECT_EQ(content("a.txt"), "three\n");
  EXPECT_EQ(repository.names(".git").count("index.lock"), 0);
  // What has the file's own bytes does without the program, and so does the way back.
  const auto back = restoreTo(changed);
  EXPECT_EQ(content("boxed"), "two\n");
  restoreTo(back);
  EXPECT_EQ(content("boxed"), "three\n");
}

TEST_F(RestorePlanTest, KeepsWhatAFilterTakesOut) {
  filter("sed /output/d", "cat", "one\n");
  repository.file(".gitattributes", "boxed filter=box -text\nmarked ident\n");
  repository.file("marked", "$Id$\n");
  repository.commit();
  repository.file("boxed", "one\noutput of a long night\n");
  const auto made = taken();
  repository.file("boxed", "one\noutput\n");
  repository.file("marked", "$Id: mine $\n");
  const auto later = restoreTo(made);
  EXPECT_EQ(content("boxed"), "one\noutput of a long night\n");
  restoreTo(later);
  EXPECT_EQ(content("boxed"), "one\noutput\n");
  EXPECT_EQ(content("marked"), "$Id: mine $\n");
  repository.git({"add", "--all"});
  const auto unchanged = taken();
  repository.file("boxed", "one\noutput of today\n");
  restoreTo(unchanged);
  EXPECT_TRUE(notes.contains("because of their filter; they stay as they are: boxed.")) << notes;
  EXPECT_EQ(content("boxed"), "one\noutput of today\n");
}

TEST_F(RestorePlanTest, RefusesWhileAnotherCommandHoldsTheIndex) {
  const auto made = taken();
  repository.file("a.txt", "two\n");
  repository.file(".git/index.lock", "");
  EXPECT_TRUE(refusalOf(made).contains(".git/index.lock"));
  fs::remove(repository / ".git/index.lock");
  restoreTo(made);
  EXPECT_EQ(content("a.txt"), "one\n");
}

TEST_F(RestorePlanTest, SweepsWhatAKilledOneLeft) {
  const auto made = taken();
  repository.file("a.txt", "two\n");
  const std::string leftover = ".git/vantrell-safety-1";
  repository.file(leftover + "/next", "an index");
  repository.file(leftover + ".lock", "");
  repository.file(".git/index.lock", "an index");
  {
    const auto used = files::LockFile::acquire(repository / (leftover + ".lock"));
    ASSERT_TRUE(used);
    EXPECT_TRUE(refusalOf(made).contains("index.lock")) << "it is at work";
  }
  restoreTo(made);
  EXPECT_EQ(content("a.txt"), "one\n");
  for (const auto& name : repository.names(".git")) {
    EXPECT_FALSE(name.starts_with("vantrell") || name.ends_with(".lock")) << name;
  }
}

TEST_F(RestorePlanTest, RefusesWhereARepositoryIsInTheWay) {
  const auto made = taken();
  repository.file("pkg", "a file");
  const auto file = restoreTo(made);
  EXPECT_FALSE(files::exists(repository / "pkg"));
  GitRepository::git(repository.folder("pkg/inside"), {"init", "--quiet"});
  repository.file("pkg/own", "untracked");
  repository.file("a.txt", "two\n");
  EXPECT_TRUE(refusalOf(file).contains("there is a repository in it"));
  EXPECT_EQ(content("a.txt"), "two\n");
  EXPECT_EQ(content("pkg/own"), "untracked");
}

TEST_F(RestorePlanTest, CopiesNoWorktreeOfAnotherRepository) {
  repository.git(
      {"worktree", "add", "--quiet", "-b", "feature", repository / ".worktrees/feature"});
  GitRepository::git(repository.folder("nested"), {"init", "--quiet"});
  GitRepository::git(repository / "nested", {"commit", "--quiet", "--allow-empty", "-m", "One"});
  const auto before = taken();
  EXPECT_TRUE(files::exists(before.archivePath + "/untracked/nested/.git"));
  EXPECT_FALSE(files::exists(before.archivePath + "/untracked/.worktrees/feature"));
  GitRepository::git(repository / "nested", {"worktree", "add", "--quiet", "linked"});
  const auto worktree = service.createIsolatedWorktree(workspace, thread, repository.path());
  ASSERT_TRUE(worktree);
  for (const auto* name : {".worktrees/feature", "nested"}) {
    EXPECT_FALSE(files::exists(worktree->path + "/" + name)) << name;
    EXPECT_TRUE(text::joined(worktree->notes, "\n").contains(name)) << name;
  }
  restoreTo(before);
  EXPECT_TRUE(files::exists(repository / ".worktrees/feature/a.txt")) << "it stays as it is";
}

TEST_F(RestorePlanTest, KeepsTheModesThatGitDoesNotKnow) {
  chmod((repository / "a.txt").c_str(), 0600);
  repository.git({"config", "core.fileMode", "false"});
  chmod((repository / "part/b.txt").c_str(), 0700);
  const auto made = taken();
  for (const auto* name : {"a.txt", "part/b.txt"}) std::ofstream(repository / name) << "two\n";
  restoreTo(made);
  EXPECT_EQ(content("a.txt"), "one\n");
  EXPECT_EQ(TemporaryFolder::modeOf(repository / "a.txt"), 0600);
  EXPECT_EQ(TemporaryFolder::modeOf(repository / "part/b.txt"), 0700);
}

TEST_F(RestorePlanTest, LeavesPipesWhereTheyAre) {
  const auto made = taken();
  repository.file("run/log", "one");
  ASSERT_EQ(mkfifo((repository / "run/pipe").c_str(), 0600), 0);
  restoreTo(made);
  EXPECT_EQ(repository.names("run"), std::set<std::string>{"pipe"});
}

TEST_F(RestorePlanTest, SaysThatTheRepositoryIgnoresTheProject) {
  repository.file(".gitignore", "work/\n");
  repository.file("work/mine", "one");
  const auto captured = capture(repository / "work");
  ASSERT_FALSE(captured);
  EXPECT_TRUE(captured.error().description().contains("ignores it"));
  const auto worktree = service.createIsolatedWorktree(workspace, thread, repository / "work");
  ASSERT_FALSE(worktree);
  EXPECT_TRUE(worktree.error().description().contains("ignores it"));
  repository.git({"add", "--force", "work"});
  const auto partly = capture(repository / "work");
  ASSERT_TRUE(partly);
  EXPECT_TRUE(partly->notes.front().contains("only tracked files are kept"));
}

TEST_F(RestorePlanTest, NamesWhatABrokenWorktreeLacks) {
  repository.file("a.txt", "two\n");
  repository.file("new", "untracked");
  // The next one after what was stopped between its two steps.
  const std::string top = support / ("TaskSafety/worktrees/" + ids);
  support.file("TaskSafety/worktrees/" + ids + ".unfinished", "");
  repository.git({"worktree", "add", "--quiet", "--detach", top, "HEAD"});
  const auto found = service.createIsolatedWorktree(workspace, thread, repository.path());
  ASSERT_TRUE(found);
  EXPECT_EQ(found->path, top);
  EXPECT_TRUE(found->notes.front().contains("differ: a.txt, new."));
  fs::remove_all(top);
  repository.git({"worktree", "lock", top});
  const auto again = service.createIsolatedWorktree(workspace, thread, repository.path());
  ASSERT_TRUE(again) << again.error().description();
  EXPECT_EQ(TemporaryFolder::contentOf(top + "/new"), "untracked");
  // A part of the repository that git did not get to.
  const Uuid cut = Uuid::random();
  const std::string begun =
      fmt::format("TaskSafety/worktrees/{}/{}", text::lowercased(workspace.text()),
                  text::lowercased(cut.text()));
  support.folder(begun);
  support.file(begun + ".unfinished", "");
  const auto part = service.createIsolatedWorktree(workspace, cut, repository / "part");
  ASSERT_TRUE(part);
  EXPECT_TRUE(fs::is_directory(part->path));
  EXPECT_TRUE(part->notes.front().contains("differ: b.txt."));
  // One whose changes cannot be copied is remembered, one that is whole is not.
  const Uuid other = Uuid::random();
  ASSERT_TRUE(service.createIsolatedWorktree(workspace, other, repository.path()));
  EXPECT_TRUE(service.createIsolatedWorktree(workspace, other, repository.path())->notes.empty());

  const GitRepository unborn;
  const auto none = service.createIsolatedWorktree(workspace, Uuid::random(), unborn.path());
  ASSERT_FALSE(none);
  EXPECT_EQ(
      none.error().description(),
      "The repository has no commit yet that a worktree could start from. Commit once first.");
}

}  // namespace vantrell::tests
