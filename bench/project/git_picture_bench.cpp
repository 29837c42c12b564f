// What the Git picture costs in a large repository: eight commands of git, of which three look at
// every file, against one "git status" there.
#include <filesystem>
#include <fstream>

#include "bench_folder.h"
#include "project/git.h"
#include "project/git_workspace_service.h"
#include "ratio.h"

using namespace vantrell;

namespace {

constexpr int filesInAll = 20'000;
constexpr int filesOfAFolder = 100;
constexpr int changedFiles = 20;

std::string pathOf(const std::string& root, int number) {
  return fmt::format("{}/folder{}/file{}.txt", root, number / filesOfAFolder, number);
}

void write(const std::string& path, int number, std::string_view lastLine) {
  std::ofstream file(path);
  for (int line = 0; line < 20; ++line) file << "line " << line << " of file " << number << "\n";
  file << lastLine;
}

void git(const std::string& root, std::vector<std::string> arguments) {
  if (!runGit(root, std::move(arguments)).succeeded()) std::abort();
}

void makeRepository(const std::string& root) {
  git(root, {"init", "--quiet"});
  for (int i = 0; i < filesInAll; ++i) {
    if (i % filesOfAFolder == 0) {
      std::filesystem::create_directories(std::filesystem::path(pathOf(root, i)).parent_path());
    }
    write(pathOf(root, i), i, "the end\n");
  }
  git(root, {"add", "--all"});
  git(root, {"-c", "user.name=Ada", "-c", "user.email=ada@example.invalid", "commit", "--quiet",
             "-m", "All"});
  for (int i = 0; i < changedFiles; ++i) {
    const int number = i * (filesInAll / changedFiles);
    write(pathOf(root, number), number, "another end\n");
  }
  // So that the index knows every other file by its date, as after a user's own look.
  git(root, {"status", "--porcelain"});
}

}  // namespace

int main() {
  const bench::Folder folder;
  makeRepository(folder.path());
  const auto found = bench::compare(
      20,
      [&] {
        GitWorkspaceSnapshot picture;
        const auto time = bench::timed([&] { picture = GitWorkspaceService::read(folder.path()); });
        if (picture.files.size() != changedFiles) std::abort();
        return time;
      },
      [&] {
        return bench::timed([&] { git(folder.path(), {"status", "--porcelain=v1", "-z"}); });
      });
  return bench::report(
      {fmt::format("Git picture of {} files, {} changed", filesInAll, changedFiles),
       "one git status there", 4.0},
      found);
}
