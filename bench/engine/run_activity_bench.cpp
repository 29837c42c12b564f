// The activity list over ten thousand tasks: what it costs where few are in it, as ever, and where
// all are, against the least that could be done.
#include "engine/tasks/run_activity.h"
#include "ratio.h"

using namespace vantrell;

namespace {

constexpr std::size_t workspaces = 20;
constexpr std::size_t tasksOfAWorkspace = 500;
constexpr Date now(800'000'000);

/// Every `nth` task failed, the others completed long ago.
std::vector<Workspace> treeWith(std::size_t nth) {
  std::vector<Workspace> tree(workspaces);
  std::size_t made = 0;
  for (auto& workspace : tree) {
    workspace.id = Uuid::random();
    workspace.name = "project";
    for (std::size_t i = 0; i < tasksOfAWorkspace; ++i, ++made) {
      ChatThread& thread = workspace.threads.emplace_back(
          ChatThread::make(fmt::format("A task with the number {}", made), now));
      for (int run = 0; run < 4; ++run) {
        RunRecord& record = thread.runs.emplace_back();
        record.id = Uuid::random();
        record.prompt = std::string(200, 'p');
        record.status = made % nth == 0 ? RunRecordStatus::failed : RunRecordStatus::completed;
        record.statusMessage = "The agent finished the task, or it did not.";
        record.updatedAt = now - Seconds(1'000 + static_cast<double>(made * 7919 % 10'007));
      }
    }
  }
  return tree;
}

/// No list can do with less than a look at the latest run of each task.
std::size_t lookAtAll(const std::vector<Workspace>& tree) {
  std::size_t seen = 0;
  for (const auto& workspace : tree) {
    for (const auto& thread : workspace.threads) {
      const RunRecord* run = thread.latestRun();
      seen += run && run->status == RunRecordStatus::failed && run->updatedAt < now ? 1 : 0;
    }
  }
  return seen;
}

/// And a list of all must hold a copy of each.
std::vector<RunActivity> rowsInOrderOfTheTree(const std::vector<Workspace>& tree) {
  std::vector<RunActivity> rows;
  rows.reserve(workspaces * tasksOfAWorkspace);
  for (const auto& workspace : tree) {
    for (const auto& thread : workspace.threads) {
      rows.push_back({workspace.id, workspace.name, thread.id, thread.title, *thread.latestRun()});
    }
  }
  return rows;
}

}  // namespace

int main() {
  const auto usual = treeWith(100), crowded = treeWith(1);
  std::size_t listed = 0, seen = 0;
  const auto found = bench::compare(
      201, [&] { return bench::timed([&] { listed += activities(usual, now).size(); }); },
      [&] { return bench::timed([&] { seen += lookAtAll(usual); }); });
  if (listed != seen || listed == 0) std::abort();

  std::size_t sorted = 0, unsorted = 0;
  const auto foundAll = bench::compare(
      51, [&] { return bench::timed([&] { sorted += activities(crowded, now).size(); }); },
      [&] { return bench::timed([&] { unsorted += rowsInOrderOfTheTree(crowded).size(); }); });
  if (sorted != unsorted) std::abort();
  fmt::print("{:.2f} ms the list of a hundred, {:.2f} ms that of ten thousand\n",
             std::chrono::duration<double, std::milli>(found.ours).count(),
             std::chrono::duration<double, std::milli>(foundAll.ours).count());
  return bench::report({"the activity list over 10,000 tasks, 100 in it",
                        "a look at the latest run of each", 3},
                       found) |
         bench::report({"the activity list with all 10,000", "its rows, unsorted", 3}, foundAll);
}
