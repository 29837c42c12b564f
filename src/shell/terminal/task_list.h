// Which tasks a list shows, and in which order. Pure functions, any thread.
#pragma once

#include <optional>
#include <vector>

#include "records/values/chat_thread.h"

namespace vantrell::shell {

struct ListedTask {
  const Workspace* workspace;
  const ChatThread* thread;
};

enum class ArchivedTasks { leftOut, only, included };

/// Pinned ones first, then the newest first; of one project, where it is given. The records must
/// outlive the answer.
std::vector<ListedTask> listedTasks(const std::vector<Workspace>& workspaces,
                                    ArchivedTasks archived, std::optional<Uuid> project);

}  // namespace vantrell::shell
