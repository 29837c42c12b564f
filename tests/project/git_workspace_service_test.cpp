#include "project/git_workspace_service.h"

#include <filesystem>
#include <gmock/gmock.h>

#include "platform/queues/manual_main_queue.h"
#include "support/git_repository.h"

namespace vantrell::tests {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

/// "M  a.txt +1 -2", with "?" for what is not counted.
std::string shown(const GitChangedFile& file) {
  const auto count = [](const auto& each) { return each ? std::to_string(*each) : "?"; };
  return file.status + " " + file.path + " +" + count(file.additions) + " -" +
         count(file.deletions);
}

std::vector<std::string> shown(const std::vector<GitChangedFile>& files) {
  std::vector<std::string> all;
  for (const auto& file : files) all.push_back(shown(file));
  return all;
}

/// NUL for "|".
std::string pieces(std::string text) {
  std::ranges::replace(text, '|', '\0');
  return text;
}

TEST(GitWorkspaceParsing, ReadsWhatGitWrites) {
  struct Case {
    std::string why, unstaged, staged, status;
    std::vector<std::string> files;
  };
  const Case cases[] = {
      {"nothing", "", "", "", {}},
      {"both lists add up; the order is that of the paths",
       "1\t2\ta|",
       "10\t0\ta|3\t4\tb|",
       "M  b|MM a|",
       {"MM a +11 -2", "M  b +3 -4"}},
      {"a binary file counts no lines", "-\t-\timage|", "", " M image|", {" M image +? -?"}},
      {"not tracked, with a tab and a line feed", "", "", "?? a\tb\nc|", {"?? a\tb\nc +? -?"}},
      {"a name with tabs is counted", "5\t6\ta\tb|", "", " M a\tb|", {" M a\tb +5 -6"}},
      {"the second piece of a rename names it, and its counts are found",
       "1\t0\tnew|",
       "2\t3\t|old|new|",
       "RM new|old|?? z|",
       {"RM old +3 -3", "?? z +? -?"}},
      {"what follows the arrow", "7\t0\tnew|", "", " M old -> new|", {" M new +7 -0"}},
      {"records that are none", "x|1\t2|\t\t\t|3\t4\t|old", "", "|M|M |", {}},
      {"cut in the middle", "1\t", "1\t1\t|old|", "R  new|", {"R  new +? -?"}},
      {"more lines than there are numbers",
       "9223372036854775807\t99999999999999999999\ta|",
       "5\t1\ta|",
       "MM a|",
       {"MM a +9223372036854775807 -1"}},
  };
  for (const auto& each : cases) {
    GitWorkspaceService::LineCounts counts;
    GitWorkspaceService::parseNumstat(pieces(each.unstaged), counts);
    GitWorkspaceService::parseNumstat(pieces(each.staged), counts);
    EXPECT_EQ(shown(GitWorkspaceService::parseStatus(pieces(each.status), counts)), each.files)
        << each.why;
  }
}

class GitSnapshot : public ::testing::Test {
 protected:
  GitWorkspaceSnapshot read() const { return GitWorkspaceService::read(repository.path()); }

  GitRepository repository;
};

TEST_F(GitSnapshot, AFolderOutsideGitHasNone) {
  const TemporaryFolder folder;
  EXPECT_EQ(GitWorkspaceService::read(folder.path()), GitWorkspaceSnapshot::unavailable());
  EXPECT_EQ(GitWorkspaceService::read(folder / "missing"), GitWorkspaceSnapshot::unavailable());
  EXPECT_EQ(GitWorkspaceService::read(repository / ".git"), GitWorkspaceSnapshot::unavailable());
}

TEST_F(GitSnapshot, NamesTheBranchElseTheCommitElseNeither) {
  EXPECT_EQ(read().branch, "main") << "before the first commit";
  const std::string revision = repository.commit();
  repository.git({"checkout", "--quiet", "--detach"});
  EXPECT_EQ(read().branch, revision.substr(0, 7));
  repository.file(".git/HEAD", "ref: refs/notes/unborn\n");
  EXPECT_EQ(read().branch, "detached");
}

TEST_F(GitSnapshot, TellsStagedFromWorkingChanges) {
  repository.file("both", "1\n2\n3\n");
  repository.file("gone", "1\n");
  repository.commit();
  repository.file("both", "1\n2\n3\n4\n");
  repository.git({"rm", "--quiet", "gone"});
  repository.git({"add", "both"});
  GitWorkspaceSnapshot picture = read();
  EXPECT_THAT(shown(picture.files), ElementsAre("M  both +1 -0", "D  gone +0 -1"));
  EXPECT_THAT(picture.diff, StartsWith("STAGED CHANGES\n\ndiff --git a/both b/both\n"));
  EXPECT_THAT(picture.diff, ::testing::Not(HasSubstr("WORKING CHANGES")));

  repository.file("both", "2\n3\n4\n");
  repository.file("new", "1\n");
  picture = read();
  EXPECT_THAT(shown(picture.files), ElementsAre("MM both +1 -1", "D  gone +0 -1", "?? new +? -?"));
  EXPECT_EQ(picture.additions(), 1);
  EXPECT_EQ(picture.deletions(), 2);
  EXPECT_THAT(picture.diff, HasSubstr("-1\n\n\nWORKING CHANGES\n\ndiff --git a/both b/both\n"));
  EXPECT_EQ(picture.error, std::nullopt);
}

TEST_F(GitSnapshot, ReadsNamesOfEveryKind) {
  const std::string many = "1\n2\n3\n4\n5\n6\n7\n8\n";
  repository.file("moved from", many);
  repository.file("binary", std::string("\0\1\2", 3));
  repository.file("a b/c", "1\n");
  repository.file("line\nfeed", "1\n");
  repository.file("bl\xC3\xBC\x74\x65", "1\n");
  repository.file("broken\xFFname", "1\n");
  repository.commit();
  repository.git({"mv", "moved from", "moved to"});
  repository.file("moved to", many + "9\n");
  repository.file("binary", std::string("\0\1\3", 3));
  repository.file("a b/c", "2\n");
  repository.file("line\nfeed", "2\n");
  repository.file("bl\xC3\xBC\x74\x65", "2\n");
  repository.file("broken\xFFname", "2\n");
  EXPECT_THAT(
      shown(read().files),
      ElementsAre(" M a b/c +1 -1", " M binary +? -?", " M bl\xC3\xBC\x74\x65 +1 -1",
                  " M broken\xEF\xBF\xBDname +1 -1", " M line\nfeed +1 -1", "RM moved from +1 -0"));
}

TEST_F(GitSnapshot, UserConfigurationDoesNotColourIt) {
  repository.file("sub/\xC3\xA4", "1\n2\n");
  repository.commit();
  repository.file("sub/\xC3\xA4", "1\n3\n");
  repository.file("top", "1\n");
  repository.git({"add", "top"});
  const GitWorkspaceSnapshot plain = GitWorkspaceService::read(repository / "sub");
  for (const auto& [name, value] :
       std::vector<std::pair<std::string, std::string>>{{"color.ui", "always"},
                                                        {"diff.noprefix", "true"},
                                                        {"diff.mnemonicPrefix", "true"},
                                                        {"diff.relative", "true"},
                                                        {"diff.external", "/bin/echo"},
                                                        {"diff.context", "0"},
                                                        {"status.short", "false"},
                                                        {"status.relativePaths", "true"},
                                                        {"status.branch", "true"},
                                                        {"core.quotePath", "true"},
                                                        {"core.pager", "/bin/false"}}) {
    repository.git({"config", name, value});
  }
  Environment process;
  process.set("GIT_DIR", "/nowhere");
  process.set("GIT_EXTERNAL_DIFF", "/bin/echo");
  GitWorkspaceSnapshot picture = GitWorkspaceService::read(repository / "sub");
  picture.refreshedAt = plain.refreshedAt;
  EXPECT_EQ(picture, plain);
  EXPECT_THAT(shown(picture.files), ElementsAre(" M sub/\xC3\xA4 +1 -1", "A  top +1 -0"));
}

TEST_F(GitSnapshot, KeepsTheBeginningOfALongDiffAndChangesNothing) {
  repository.file("long", "");
  repository.file("wide", "");
  repository.commit();
  std::string lines;
  for (int i = 0; i < 60'000; ++i) lines += "a line of text\n";
  repository.file("long", lines);
  repository.git({"add", "long"});
  repository.file("wide", lines);
  const auto index = TemporaryFolder::contentOf(repository / ".git/index");
  const GitWorkspaceSnapshot picture = read();
  EXPECT_EQ(picture.diff.size(), std::string("STAGED CHANGES\n\n").size() + 120'000 + 2 +
                                     std::string("WORKING CHANGES\n\n").size() + 180'000);
  EXPECT_THAT(shown(picture.files), ElementsAre("M  long +60000 -0", " M wide +60000 -0"));
  EXPECT_EQ(TemporaryFolder::contentOf(repository / ".git/index"), index);
}

TEST_F(GitSnapshot, SaysWhenTheStatusCannotBeRead) {
  repository.file("file", "1\n");
  repository.commit();
  repository.file(".git/index", "no index");
  const GitWorkspaceSnapshot picture = read();
  EXPECT_TRUE(picture.isRepository);
  EXPECT_EQ(picture.error, "Git status could not be read.");
  EXPECT_TRUE(picture.files.empty());
  EXPECT_EQ(picture.branch, "main");
}

TEST_F(GitSnapshot, RepliesOnTheMainQueueUnlessItIsStopped) {
  ManualMainQueue main;
  BackgroundPool pool(1);
  std::vector<GitWorkspaceSnapshot> replies;
  const auto reply = [&](GitWorkspaceSnapshot picture) { replies.push_back(std::move(picture)); };
  std::stop_source stop;
  stop.request_stop();
  GitWorkspaceService::snapshot(repository.path(), stop.get_token(), main, pool, reply);
  GitWorkspaceService::snapshot(repository.path(), {}, main, pool, reply);
  ASSERT_TRUE(main.runUntil([&] { return !replies.empty(); }));
  ASSERT_EQ(replies.size(), 1U);
  EXPECT_TRUE(replies[0].isRepository) << "the one that nobody stopped";
  EXPECT_EQ(replies[0].refreshedAt, main.now());
}

}  // namespace
}  // namespace vantrell::tests
