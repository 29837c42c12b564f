#include "project/git.h"

#include <gtest/gtest.h>

#include "platform/files/files.h"
#include "support/environment.h"
#include "support/git_repository.h"

namespace vantrell::tests {

TEST(Git, AnswersOutputErrorsAndStatus) {
  const GitRepository repository;
  repository.file("a.txt", "one\n");
  const GitResult status = runGit(repository.path(), {"status", "--porcelain=v1"});
  EXPECT_TRUE(status.succeeded());
  EXPECT_EQ(status.text(), "?? a.txt");

  const GitResult mixed = runGit(repository.path(), {"rev-parse", "no-such"});
  EXPECT_NE(mixed.status, 0);
  EXPECT_TRUE(mixed.output.contains("fatal:"));
  const GitResult apart =
      runGit(repository.path(), {"rev-parse", "no-such"}, {.errorsApart = true});
  EXPECT_EQ(apart.output, "no-such\n");
  EXPECT_TRUE(apart.errors.contains("fatal:"));
}

TEST(Git, SaysWhatTheSystemSaysWhenItCannotStart) {
  const GitResult result = runGit("/tmp", {std::string("a\0b", 3)});
  EXPECT_EQ(result.status, -1);
  EXPECT_FALSE(result.output.empty());
}

TEST(Git, KeepsTheFirstBytesAndReadsToTheEnd) {
  const GitRepository repository;
  repository.file("big", std::string(3'000'000, 'x'));
  repository.commit();
  const GitResult cut = runGit(repository.path(), {"show", "HEAD:big"}, {.keptOutput = 1000});
  EXPECT_EQ(cut.output, std::string(1000, 'x'));
  EXPECT_TRUE(cut.wasCut);
  EXPECT_EQ(cut.status, 0);
}

TEST(Git, EndsACommandThatTakesTooLong) {
  const GitRepository repository;
  const GitResult result =
      runGit(repository.path(), {"-c", "alias.wait=!echo begun; exec tail -f /dev/null", "wait"},
             {.limit = std::chrono::milliseconds(50)});
  EXPECT_TRUE(result.hasRunOut);
  EXPECT_EQ(result.status, -1);
}

TEST(Git, IsNotLedAstrayByTheEnvironment) {
  const GitRepository repository;
  Environment process;
  process.set("GIT_DIR", "/nowhere");
  process.set("GIT_INDEX_FILE", "/nowhere/index");
  process.set("GIT_TRACE", "1");
  process.set("GIT_CONFIG_COUNT", "1");
  process.set("GIT_CONFIG_KEY_0", "some.user");
  process.set("GIT_CONFIG_VALUE_0", "choice");
  const GitResult top = runGit(repository.path(), {"rev-parse", "--show-toplevel"});
  EXPECT_EQ(top.output, repository.path() + "\n");
  const GitResult configured = runGit(repository.path(), {"config", "--get-regexp", "^some\\."},
                                      {.configuration = {{"some.other", "one"}}});
  EXPECT_EQ(configured.output, "some.user choice\nsome.other one\n");
}

TEST(Git, TakesInputAndBytesOfPathsAsTheyAre) {
  const GitRepository repository;
  const std::string name = "odd \n\xff name";
  repository.file(name, "one");
  const GitResult listed = runGit(repository.path(), {"ls-files", "--others", "-z"});
  EXPECT_EQ(listed.parts(), std::vector{name});
  const GitResult hashed =
      runGit(repository.path(), {"hash-object", "--stdin"}, {.input = "hello\n"});
  EXPECT_EQ(hashed.text(), "ce013625030ba8dba906f756967f9e9ca394464a");
}

TEST(Git, LeavesTheIndexAloneWhereItOnlyLooks) {
  const GitRepository repository;
  repository.file("a", "one");
  repository.commit();
  const std::string index = repository / ".git/index";
  const std::string before = TemporaryFolder::contentOf(index);
  // The file is as it was, but its times are not: status would note that in the index.
  repository.file("a", "one");
  std::filesystem::last_write_time(repository / "a", std::filesystem::file_time_type::min());
  EXPECT_TRUE(runGit(repository.path(), {"status"}, {.isReadOnly = true}).succeeded());
  EXPECT_EQ(TemporaryFolder::contentOf(index), before);
  EXPECT_TRUE(runGit(repository.path(), {"status"}).succeeded());
  EXPECT_NE(TemporaryFolder::contentOf(index), before);
}

}  // namespace vantrell::tests
