// The conversations for a command that only looks, also while another process owns them and works.
// It gets plain records and changes nothing. Blocks; main thread.
#pragma once

#include <functional>
#include <vector>

#include "platform/values/date.h"
#include "records/values/chat_thread.h"
#include "shell/terminal/command.h"

namespace vantrell::shell {

struct StateView {
  const std::vector<Workspace>& workspaces;  // General first
  Date now;
};

/// Answers what `look` answers, or refuses with its error. Where the state cannot be opened, says
/// so on standard error and answers exitStatus::failed.
int withStateView(const std::function<std::expected<int, UsageError>(const StateView&)>& look);

}  // namespace vantrell::shell
