// A checkpoint stands before every prompt. In a repository of 20,000 files with 20 changed it
// should cost a few looks at the working tree, which is what "git status" does once.
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <stdlib.h>

#include "bench_folder.h"
#include "project/git.h"
#include "project/task_safety_service.h"
#include "ratio.h"

namespace {

constexpr int fileCount = 20'000;
constexpr int changed = 20;
constexpr int rounds = 15;

void write(const std::string& path, int content) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path) << "a line of a file that is like many others, number " << content << "\n";
}

std::string pathOf(const std::string& root, int number) {
  return fmt::format("{}/folder {}/{}/file {}.txt", root, number % 40, number % 7, number);
}

}  // namespace

int main() {
  using namespace vantrell;
  setenv("GIT_CONFIG_GLOBAL", "/dev/null", 1);
  setenv("GIT_AUTHOR_NAME", "Bench", 1);
  setenv("GIT_AUTHOR_EMAIL", "bench@example.invalid", 1);
  setenv("GIT_COMMITTER_NAME", "Bench", 1);
  setenv("GIT_COMMITTER_EMAIL", "bench@example.invalid", 1);
  const bench::Folder project;
  const bench::Folder support;
  for (int i = 0; i < fileCount; ++i) write(pathOf(project.path(), i), i);
  runGit(project.path(), {"init", "--quiet"});
  runGit(project.path(), {"add", "--all"});
  if (!runGit(project.path(), {"commit", "--quiet", "-m", "All"}).succeeded()) return EXIT_FAILURE;
  for (int i = 0; i < changed; ++i) write(pathOf(project.path(), i * 997), -i - 1);

  const TaskSafetyService service(support.path());
  bool isDone = true;
  const auto found = bench::compare(
      rounds,
      [&] {
        return bench::timed([&] {
          const auto made = service.captureCheckpoint(
              {.workspacePath = project.path(), .label = "Before", .kind = {}});
          isDone = isDone && made && made->checkpoint.changedFileCount == changed;
        });
      },
      [&] {
        return bench::timed([&] {
          const auto status = runGit(project.path(), {"status", "--porcelain=v1"});
          isDone = isDone && status.succeeded();
        });
      });
  if (!isDone) return EXIT_FAILURE;
  return bench::report({"a checkpoint with 20 of 20,000 files changed", "git status", 8}, found);
}
