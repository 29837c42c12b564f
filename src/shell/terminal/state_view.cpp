#include "shell/terminal/state_view.h"

#include "shell/terminal/with_app.h"

namespace vantrell::shell {

int withStateView(const std::function<std::expected<int, UsageError>(const StateView&)>& look) {
  return withApp({}, [&](RunLoop& loop, VantrellApp& app) {
    const auto status = look({.workspaces = app.model().tree.workspaces(), .now = loop.now()});
    return status ? *status : refuse(status.error());
  });
}

}  // namespace vantrell::shell
