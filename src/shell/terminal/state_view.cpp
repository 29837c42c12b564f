#include "shell/terminal/state_view.h"

#include "platform/storage/user_defaults.h"
#include "records/stores/workspace_store.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/with_app.h"

namespace vantrell::shell {

namespace {

using Look = std::function<std::expected<int, UsageError>(const StateView&)>;

int answer(const std::expected<int, UsageError>& status) {
  return status ? *status : refuse(status.error());
}

/// Beside the program that is at work: what it has stored.
int lookBeside(const UserFolders& folders, const Look& look) {
  const auto defaults = UserDefaults::inMemory();
  const auto seen = WorkspaceStore(*defaults, folders.support).peek();
  if (!seen) {
    complain(seen.error() + ". Nothing was changed.");
    return exitStatus::failed;
  }
  const int status = answer(look({.workspaces = seen->workspaces, .now = Date::current()}));
  if (!seen->problems->empty()) complain(*seen->problems);
  return status;
}

}  // namespace

int withStateView(const Look& look) {
  const UserFolders folders = UserFolders{}.orOwn();
  if (files::exists(folders.support) && folders.areInUse()) return lookBeside(folders, look);
  return withApp({}, [&](RunLoop& loop, VantrellApp& app) {
    return answer(look({.workspaces = app.model().tree.workspaces(), .now = loop.now()}));
  });
}

}  // namespace vantrell::shell
