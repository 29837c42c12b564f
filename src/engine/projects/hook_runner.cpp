#include "engine/projects/hook_runner.h"

#include "platform/queues/dispatch.h"
#include "platform/queues/weakly.h"
#include "platform/text/text.h"

namespace vantrell {

HookRunner::HookRunner(MainQueue& main, WorkspaceTree& tree, ProjectContextService& contexts,
                       ProjectServices& services)
    : main_(main), tree_(tree), contexts_(contexts), services_(services) {}

Result<Uuid> HookRunner::addProjectHook(ProjectHookEvent event,
                                        std::string_view relativeExecutablePath,
                                        const Uuid& workspaceID) {
  const std::string path(text::trimmed(relativeExecutablePath));
  if (path.empty() || path.starts_with('/')) {
    return refuse("Hooks must be executable files inside the project, using a relative path.");
  }
  const Uuid id = Uuid::random();
  const auto added = contexts_.update(workspaceID, [&](ProjectContextProfile& profile) {
    if (!profile.hooks) profile.hooks.emplace();
    profile.hooks->push_back({.id = id, .event = event, .relativeExecutablePath = path});
  });
  if (!added) return std::unexpected(added.error());
  return id;
}

Result<> HookRunner::removeProjectHook(const Uuid& id, const Uuid& workspaceID) {
  return contexts_.update(workspaceID, [&](ProjectContextProfile& profile) {
    if (!profile.hooks) return;
    std::erase_if(*profile.hooks, [&](const auto& each) { return each.id == id; });
  });
}

void HookRunner::runProjectHooks(ProjectHookEvent event, const ThreadExecutionKey& key,
                                 std::function<void()> done) {
  const auto path = tree_.executionPath(key);
  if (!path) return done();
  Round round{.key = key, .hooks = {}, .done = std::move(done)};
  for (const auto& hook :
       contexts_.profile(key.workspaceID).hooks.value_or(std::vector<ProjectHook>())) {
    if (hook.enabled && hook.event == event) round.hooks.push_back(hook);
  }
  if (round.hooks.empty()) return round.done();
  auto& rounds = rounds_[*path];
  rounds.push_back(std::move(round));
  if (rounds.size() == 1) runNext(*path);
}

void HookRunner::whenDone(const ThreadExecutionKey& key, std::function<void()> done) {
  for (auto& [path, rounds] : rounds_) {
    const bool isAtWork = std::ranges::any_of(
        rounds, [&](const Round& each) { return each.key == key && !each.hooks.empty(); });
    if (!isAtWork) continue;
    // Behind all of them; it may have some in another folder as well.
    rounds.push_back(
        {key, {}, weakly(this, [key, done = std::move(done)](HookRunner& self) mutable {
           self.whenDone(key, std::move(done));
         })});
    return;
  }
  done();
}

void HookRunner::runNext(const std::string& path) {
  const auto place = rounds_.find(path);
  auto& rounds = place->second;
  Round& round = rounds.front();
  // The conversation may have been deleted meanwhile: its hooks end there.
  if (!round.hooks.empty() && tree_.thread(round.key)) {
    return services_.runProjectHook(round.hooks.front(), path,
                                    weakly(this, [path](HookRunner& self, std::string text) {
                                      self.ended(path, std::move(text));
                                    }));
  }
  const auto done = std::move(round.done);
  rounds.pop_front();
  const bool isLast = rounds.empty();
  if (isLast) rounds_.erase(place);
  done();  // may begin another round
  if (!isLast) runNext(path);
}

void HookRunner::ended(const std::string& path, std::string text) {
  Round& round = rounds_.at(path).front();
  ChatEntry entry;
  entry.id = Uuid::random().text();
  entry.kind = ChatEntryKind::tool;
  entry.title = std::string(hookEntryTitle) + round.hooks.front().relativeExecutablePath;
  entry.text = std::move(text);
  entry.status = "completed";
  entry.createdAt = main_.now();
  const ThreadExecutionKey key = round.key;
  round.hooks.pop_front();
  tree_.appendEntry(std::move(entry), key);
  runNext(path);
}

}  // namespace vantrell
