#include "engine/core/selection.h"

#include <algorithm>
#include <utility>

#include "platform/storage/user_defaults.h"

namespace vantrell {

namespace {
constexpr std::string_view workspaceKey = "selectedWorkspace.v1";
constexpr std::string_view threadKey = "selectedThread.v1";

std::optional<Uuid> stored(const UserDefaults& defaults, std::string_view key) {
  const auto text = defaults.text(key);
  return text ? Uuid::parse(*text) : std::nullopt;
}

void store(UserDefaults& defaults, std::string_view key, const std::optional<Uuid>& id) {
  if (id) {
    defaults.setText(key, id->text());
  } else {
    defaults.remove(key);
  }
}
}  // namespace

Selection::Selection(UserDefaults& defaults, Changes& changes)
    : defaults_(defaults), changes_(changes) {}

void Selection::restore(const std::vector<Workspace>& workspaces) {
  workspaceID_.reset();
  threadID_.reset();
  entryID_.reset();
  if (workspaces.empty()) return;
  const auto wantedWorkspace = stored(defaults_, workspaceKey);
  const auto found = wantedWorkspace
                         ? std::ranges::find(workspaces, *wantedWorkspace, &Workspace::id)
                         : workspaces.end();
  const Workspace& workspace = found == workspaces.end() ? workspaces.front() : *found;
  workspaceID_ = workspace.id;

  const auto wantedThread = stored(defaults_, threadKey);
  if (wantedThread && workspace.thread(*wantedThread)) {
    threadID_ = wantedThread;
    return;
  }
  const auto visible = std::ranges::find(workspace.threads, false, &ChatThread::isArchived);
  if (visible != workspace.threads.end()) threadID_ = visible->id;
}

void Selection::select(std::optional<Uuid> workspaceID, std::optional<Uuid> threadID,
                       std::optional<std::string> entryID) {
  workspaceID_ = workspaceID;
  threadID_ = threadID;
  entryID_ = std::move(entryID);
  store(defaults_, workspaceKey, workspaceID_);
  store(defaults_, threadKey, threadID_);
  changes_.mark(topics::selection);
}

void Selection::setSection(AppSection section) {
  if (std::exchange(section_, section) != section) changes_.mark(topics::selection);
}

std::optional<ThreadExecutionKey> Selection::key() const {
  if (!workspaceID_ || !threadID_) return std::nullopt;
  return ThreadExecutionKey{*workspaceID_, *threadID_};
}

}  // namespace vantrell
