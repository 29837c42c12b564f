#include "project/unified_diff_parser.h"

#include <filesystem>
#include <gmock/gmock.h>

#include "project/git_workspace_service.h"
#include "support/git_repository.h"

namespace vantrell::tests {
namespace {

using ::testing::ElementsAre;

std::vector<std::string> shown(const std::vector<DiffHunk>& hunks) {
  std::vector<std::string> all;
  for (const auto& hunk : hunks) {
    all.push_back(hunk.id() + "|" + hunk.body + "|+" + std::to_string(hunk.additions) + "-" +
                  std::to_string(hunk.deletions));
  }
  return all;
}

TEST(UnifiedDiffParser, CutsHunks) {
  struct Case {
    std::string why, text;
    std::vector<std::string> hunks;
  };
  const Case cases[] = {
      {"an empty diff has none", "", {}},
      {"lines outside hunks are dropped, and +++ is no addition",
       "diff --git a/x b/x\nindex 1..2\n--- a/x\n+++ b/x\n@@ -1 +1 @@ f()\n-a\n+b\n c",
       {"x|@@ -1 +1 @@ f()|-a\n+b\n c|+1-1"}},
      {"neither is a changed line that looks so, which is a price of the simple rule",
       "@@ -1 +1 @@\n--- a\n+++ b\n+c",
       {"Changes|@@ -1 +1 @@|--- a\n+++ b\n+c|+1-0"}},
      {"several files and hunks, the last one cut, one that names no file",
       "diff --git a/x b/x\n@@ 1\n+a\n@@ 2\ndiff --git a/y b/y\n@@ 3\n-b\ndiff --git x\n@@ 4\n+",
       {"x|@@ 1|+a|+1-0", "x|@@ 2||+0-0", "y|@@ 3|-b|+0-1", "y|@@ 4|+|+1-0"}},
      {"without a hunk it is one",
       "diff --git a/x b/x\nold mode 100644\nnew mode 100755\n+1\n--- 2\n",
       {"Changes|Full diff|diff --git a/x b/x\nold mode 100644\nnew mode 100755\n+1\n--- "
        "2\n|+1-0"}},
      {"the first place of a name that has several",
       "diff --git a/d b/f b/d b/f\n@@\n",
       {"f b/d b/f|@@||+0-0"}},
      {"a name that Git quotes",
       "diff --git \"a/l\\nf\" \"b/l\\nf \\303\\274\\\"\\\\\"\n@@\n",
       {"l\nf \xC3\xBC\"\\|@@||+0-0"}},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(shown(UnifiedDiffParser::parse(each.text)), each.hunks) << each.why;
  }
}

TEST(UnifiedDiffParser, GivesEachHunkOfARepositoryToItsFile) {
  const GitRepository repository;
  std::string lines;
  for (int i = 0; i < 40; ++i) lines += "line\n";
  repository.file("line\nfeed", lines);
  repository.file("plain", lines);
  repository.file("tool", "#!\n");
  repository.commit();
  repository.file("line\nfeed", "first\n" + lines + "last\n");
  repository.file("plain", lines + "last\n");
  std::filesystem::permissions(repository / "tool", std::filesystem::perms::owner_all);
  const auto hunks = UnifiedDiffParser::parse(GitWorkspaceService::read(repository.path()).diff);
  std::vector<std::string> all;
  for (const auto& hunk : hunks) all.push_back(hunk.id());
  EXPECT_THAT(all, ElementsAre("line\nfeed|@@ -1,3 +1,4 @@", "line\nfeed|@@ -38,3 +39,4 @@ line",
                               "plain|@@ -38,3 +38,4 @@ line"));
}

TEST(UnifiedDiffParser, TellsADiffThatWasCutFromAWholeOne) {
  const std::string staged = "STAGED CHANGES\n\n-a\n", working = "\n\nWORKING CHANGES\n\n+b\n";
  for (const auto& whole : {std::string(), staged, staged + working}) {
    EXPECT_FALSE(UnifiedDiffParser::isCut(whole)) << whole;
  }
  EXPECT_TRUE(UnifiedDiffParser::isCut("WORKING CHANGES\n\n+b"));
  EXPECT_TRUE(UnifiedDiffParser::isCut("STAGED CHANGES\n\n-a" + working));
}

}  // namespace
}  // namespace vantrell::tests
