// How long the main queue is held up by what needs transcripts that are still on the disk: search,
// export, move, fork, and a prompt to another provider. A thousand tasks with a hundred megabytes
// of text. The processor time of the longest piece of work counts, so that it means the same on a
// loaded machine.
#include <sys/wait.h>
#include <unistd.h>

#include "app/app_model.h"
#include "app/app_parts.h"
#include "app/stored_tasks.h"
#include "bench_folder.h"
#include "platform/queues/manual_main_queue.h"
#include "platform/storage/user_defaults.h"
#include "ratio.h"
#include "records/stores/workspace_store.h"
#include "support/fake_agent_client.h"
#include "support/fake_services.h"

using namespace vantrell;

namespace {

constexpr int tasks = 1000;
constexpr std::size_t entriesOfATask = 25;
constexpr std::size_t bytesOfAnEntry = 4'000;
constexpr std::chrono::milliseconds mostOfATurn{4};

/// Measures each piece of work.
class MeasuredQueue final : public MainQueue {
 public:
  void post(Work work) override {
    inner_.post([this, work = std::move(work)]() mutable { measure(work); });
  }
  Timer after(Duration delay, Work work) override {
    return inner_.after(delay, [this, work = std::move(work)]() mutable { measure(work); });
  }
  Timer every(Duration period, std::function<void()> work) override {
    return inner_.every(period, std::move(work));
  }
  Date now() const override { return inner_.now(); }
  Duration uptime() const override { return inner_.uptime(); }

  /// The longest piece of work until the condition holds.
  bench::Clock::duration longestUntil(const std::function<bool()>& condition) {
    longest_ = {};
    if (!inner_.runUntil(condition, std::chrono::minutes(2))) std::abort();
    inner_.runReady();
    return longest_;
  }

 private:
  template <typename Body>
  void measure(Body& body) {
    longest_ = std::max(longest_, bench::processorTimed([&] { body(); }));
  }

  ManualMainQueue inner_;
  bench::Clock::duration longest_{};
};

/// In a process of its own, so that nothing of it is in memory.
void makeStore(const std::string& folder) {
  const pid_t child = fork();
  if (child == 0) {
    const auto defaults = UserDefaults::inMemory();
    WorkspaceStore store(*defaults, folder);
    auto workspaces = store.load(Date(1));
    for (const char* name : {"/one", "/two"}) {
      std::filesystem::create_directory(folder + name);
      workspaces.push_back(Workspace::makeProject(folder + name, Date(1)));
    }
    std::size_t seed = 0;
    for (int i = 0; i < tasks; ++i) {
      ChatThread thread = ChatThread::make(fmt::format("Task {}", i), Date(1));
      thread.lastProvider = AgentProvider::codex;
      for (std::size_t at = 0; at < entriesOfATask; ++at) {
        ChatEntry entry;
        entry.id = Uuid::random().text();
        entry.kind = at % 2 == 0 ? ChatEntryKind::user : ChatEntryKind::assistant;
        if (at % 2 == 1) entry.provider = AgentProvider::codex;
        while (entry.text.size() < bytesOfAnEntry) {
          entry.text += fmt::format("{} words of an answer, \"quoted\".\n", seed += 7919);
        }
        thread.entries.append(std::move(entry));
      }
      workspaces[1].threads.push_back(std::move(thread));
    }
    _exit(store.save(workspaces) ? 0 : 1);
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child || status != 0) std::abort();
}

}  // namespace

int main() {
  const bench::Folder folder;
  makeStore(folder.path());
  MeasuredQueue main;
  BackgroundPool writer(1);
  BackgroundPool background(1);
  const auto defaults = UserDefaults::inMemory();
  defaults->setText("providerRoutingMode.v1", "kimi");
  WorkspaceStore store(*defaults, folder.path());
  tests::FakeProviders providers;
  tests::FakeProjects projects;
  EngineEvents events;
  const RuntimePrograms programs;
  std::vector<std::shared_ptr<tests::FakeAgentClient>> clients;
  for (const auto each : allAgentProviders) {
    providers.connectors[each] = {
        each, "", [](const auto&) { return true; },
        [&clients, each](const auto&) {
          clients.push_back(std::make_shared<tests::FakeAgentClient>(each));
          return std::shared_ptr<AgentClient>(clients.back());
        },
        [](const auto&) { return std::vector<ProviderModelOption>(); }};
  }
  AppModel app({.main = main,
                .defaults = *defaults,
                .store = store,
                .providers = providers,
                .projects = projects,
                .events = events,
                .programs = programs,
                .supportFolder = folder.path(),
                .writer = &writer,
                .background = &background});
  AppParts& parts = app.parts();
  const auto workspace = parts.tree.workspaces()[1].id;
  const auto other = parts.tree.workspaces()[2].id;
  const auto taskAt = [&](std::size_t place) {
    return ThreadExecutionKey{workspace, parts.tree.workspaces()[1].threads[place].id};
  };
  main.longestUntil([] { return true; });

  int status = EXIT_SUCCESS;
  /// `begin` is itself a piece of work on the queue.
  const auto measure = [&](std::string_view what, const std::function<void()>& begin,
                           const std::function<bool()>& isDone) {
    main.post(begin);
    const std::chrono::duration<double, std::milli> longest = main.longestUntil(isDone);
    status |= bench::report({what, "4 ms", 1}, longest.count() / mostOfATurn.count());
  };

  bool isDone = false;
  const auto done = [&isDone](const auto& result) {
    if (!result) std::abort();
    isDone = true;
  };
  const auto isOver = [&] { return std::exchange(isDone, false); };
  measure(
      "longest turn of a search through all",
      [&] { app.storedTasks().search({.text = "no such words"}, 100, done); }, isOver);
  measure(
      "longest turn of the export of a task",
      [&] {
        app.storedTasks().exportConversation(taskAt(500), folder.path() + "/a.md", true, done);
      },
      isOver);
  measure(
      "longest turn of the export of all",
      [&] { app.storedTasks().exportAll(folder.path() + "/all.json", true, done); }, isOver);
  const auto moved = taskAt(600);
  measure(
      "longest turn of a move",
      [&] { done(parts.operations->moveThread(moved.threadID, workspace, other)); },
      [&] {
        const ChatThread* thread = parts.tree.thread({other, moved.threadID});
        return thread && thread->entries.isRead();
      });
  isDone = false;
  std::optional<ThreadExecutionKey> fork;
  measure(
      "longest turn of a fork", [&] { fork = *parts.branches->forkThread(taskAt(700), {}); },
      [&] { return fork && parts.tree.thread(*fork)->entries.size() == entriesOfATask; });
  measure(
      "longest turn of a prompt to another provider",
      [&] { done(parts.composer->send("Go on", {}, taskAt(800))); },
      [&] { return !clients.empty(); });
  return status;
}
