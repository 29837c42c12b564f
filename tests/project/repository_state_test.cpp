#include "project/repository_state.h"

#include <gtest/gtest.h>

#include "support/git_repository.h"

namespace vantrell::tests {
namespace {

TEST(RepositoryState, HasABlockForEachQuestionThatGitAnswers) {
  GitRepository repository;
  for (const char* name : {"color.ui", "color.status", "color.diff"}) {
    repository.git({"config", name, "always"});
  }
  repository.file("a.txt", "one\n");
  repository.commit();
  EXPECT_EQ(repositoryState(repository.path()), "$ git status --short --branch\n## main");
  repository.file("a.txt", "two\n");
  repository.git({"add", "a.txt"});
  repository.file("a.txt", "three\n");
  EXPECT_EQ(repositoryState(repository.path()),
            "$ git status --short --branch\n## main\nMM a.txt\n\n"
            "$ git diff --stat\na.txt | 2 +-\n 1 file changed, 1 insertion(+), 1 deletion(-)\n\n"
            "$ git diff --cached --stat\na.txt | 2 +-\n 1 file changed, 1 insertion(+), 1 "
            "deletion(-)");
}

TEST(RepositoryState, IsEmptyWhereThereIsNoRepository) {
  TemporaryFolder folder;
  EXPECT_EQ(repositoryState(folder.path()), "");
  EXPECT_EQ(repositoryState(folder / "missing"), "");
}

}  // namespace
}  // namespace vantrell::tests
