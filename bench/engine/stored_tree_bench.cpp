// What a large tree of conversations costs: to save a chunk in it, to start with it, to have it in
// memory. A thousand tasks with a hundred megabytes of text.
#include <deque>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench_folder.h"
#include "engine/core/workspace_tree.h"
#include "platform/queues/dispatch.h"
#include "platform/queues/manual_main_queue.h"
#include "platform/storage/user_defaults.h"
#include "platform/values/json.h"
#include "process_memory.h"
#include "ratio.h"
#include "records/stores/workspace_store.h"

using namespace vantrell;

namespace {

constexpr std::size_t entriesOfATask = 25;
constexpr std::size_t bytesOfAnEntry = 4'000;
constexpr std::size_t bytesOfATask = entriesOfATask * bytesOfAnEntry;

/// Lines as agents write them, each different.
std::string words(std::size_t seed) {
  std::string text;
  while (text.size() < bytesOfAnEntry) {
    text += fmt::format("{} words of an answer, \"quoted\", with `code` in it.\n", seed += 7919);
  }
  return text.substr(0, bytesOfAnEntry);
}

/// In a process of its own, so that the memory of making it is not counted.
void makeStore(const std::string& folder, int tasks) {
  const pid_t child = fork();
  if (child == 0) {
    const auto defaults = UserDefaults::inMemory();
    WorkspaceStore store(*defaults, folder);
    auto workspaces = store.load(Date(1));
    for (int i = 0; i < tasks; ++i) {
      ChatThread thread = ChatThread::make(fmt::format("Task {}", i), Date(1));
      for (std::size_t entry = 0; entry < entriesOfATask; ++entry) {
        ChatEntry made;
        made.id = Uuid::random().text();
        made.text = words(static_cast<std::size_t>(i) * entriesOfATask + entry);
        thread.entries.append(std::move(made));
      }
      for (int run = 0; run < 4; ++run) {
        thread.runs.emplace_back().id = Uuid::random();
        thread.runs.back().prompt = std::string(200, 'p');
      }
      workspaces[0].threads.push_back(std::move(thread));
    }
    _exit(store.save(workspaces) ? 0 : 1);
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child || status != 0) std::abort();
}

double residentBytes() {
  malloc_trim(0);
  return bench::memory("VmRSS");
}

/// Keeps the writes apart from what the main queue does for them.
class Writer final : public Executor {
 public:
  void post(Work work) override { works.push_back(std::move(work)); }
  void runAll() {
    while (!works.empty()) {
      auto work = std::move(works.front());
      works.pop_front();
      work();
    }
  }
  std::deque<Work> works;
};

class Tree {
 public:
  explicit Tree(const std::string& folder) : store_(*defaults_, folder) {
    tree_.load();
    const Workspace& general = tree_.workspaces().front();
    key_ = {general.id, general.threads.back().id};
    entry_ = tree_.thread(key_)->entries.back().id;
    settle();
  }
  ~Tree() { settle(); }

  /// A chunk and its save, as far as it costs the main queue.
  void saveChunk() {
    tree_.appendText("chunk ", entry_, key_);
    main_.advance(WorkspaceTree::streamInterval);
  }
  void settle() {
    writer_.runAll();
    main_.runReady();
  }
  /// The entry must not grow from round to round.
  void reset() {
    tree_.updateEntry(entry_, key_, [](ChatEntry& entry) { entry.text = words(1); });
    main_.advance(WorkspaceTree::streamInterval);
    settle();
  }

 private:
  std::unique_ptr<UserDefaults> defaults_ = UserDefaults::inMemory();
  ManualMainQueue main_;
  WorkspaceStore store_;
  Changes changes_{main_};
  Writer writer_;
  WorkspaceTree tree_{main_, store_, changes_, &writer_};
  ThreadExecutionKey key_;
  std::string entry_;
};

int reportMemory(const std::string& folder, double text) {
  const double before = residentBytes();
  const auto defaults = UserDefaults::inMemory();
  WorkspaceStore store(*defaults, folder);
  const auto workspaces = store.load(Date(2));
  const double started = residentBytes() - before;
  for (const auto& thread : workspaces[0].threads) (void)thread.entries.begin();
  const double opened = residentBytes() - before;
  return bench::report({"memory after the start", "the text", 0.2}, started / text) |
         bench::report({"memory with every transcript opened", "the text", 1.5}, opened / text);
}

int reportStart(const std::string& folder) {
  const auto defaults = UserDefaults::inMemory();
  const auto document = WorkspaceStore(*defaults, folder).exportDocument();
  if (!document) std::abort();
  std::size_t seen = 0, parsed = 0;
  const auto found = bench::compare(
      9,
      [&] {
        return bench::timed([&] {
          WorkspaceStore store(*defaults, folder);
          seen = store.load(Date(2))[0].threads.size();
        });
      },
      [&] { return bench::timed([&] { parsed += json::parse(document->document) ? 1U : 0U; }); });
  fmt::print("{:.1f} ms from the file to the list of {} tasks\n",
             std::chrono::duration<double, std::milli>(found.ours).count(), seen);
  if (parsed == 0) std::abort();
  return bench::report({"start to a list of tasks", "parsing the same tree as one document", 0.25},
                       found);
}

int reportSaves(const std::string& large, const std::string& small) {
  Tree inLarge(large), inSmall(small);
  const auto round = [](Tree& tree, bool withWrite) {
    tree.reset();
    return bench::timed([&] {
      for (int i = 0; i < 20; ++i) {
        tree.saveChunk();
        if (withWrite) tree.settle();
      }
    });
  };
  const auto collected = bench::compare(
      101, [&] { return round(inLarge, false); }, [&] { return round(inSmall, false); });
  const auto written = bench::compare(
      31, [&] { return round(inLarge, true); }, [&] { return round(inSmall, true); });
  fmt::print("{:.2f} ms a save of a chunk, with the disk\n",
             std::chrono::duration<double, std::milli>(written.ours).count() / 20);
  return bench::report({"a chunk saved among 100 MB, on the main queue", "one among 1 MB", 2},
                       collected) |
         bench::report({"a chunk saved among 100 MB, with the disk", "one among 1 MB", 2}, written);
}

}  // namespace

int main() {
  const bench::Folder large, small;
  constexpr int tasks = 1'000;
  makeStore(large.path(), tasks);
  makeStore(small.path(), 10);
  const int memory =
      reportMemory(large.path(), static_cast<double>(bytesOfATask) * static_cast<double>(tasks));
  return memory | reportStart(large.path()) | reportSaves(large.path(), small.path());
}
