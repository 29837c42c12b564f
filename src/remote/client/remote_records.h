// What a host tells about its conversations, as the records that this program's own views and
// printers take. What has no meaning here (an id that is no UUID, an entry of an unknown kind) is
// left out. Pure functions, any thread.
#pragma once

#include <optional>
#include <vector>

#include "records/values/chat_thread.h"
#include "remote/protocol/remote_snapshot.h"
#include "runtimes/wire/agent_client.h"

namespace vantrell {

std::optional<ChatEntry> recordOf(const RemoteChatEntry& entry);
/// With only what an activity says about it: the prompt, model and effort stay empty.
std::optional<RunRecord> recordOf(const RemoteRunActivity& activity);
PermissionRequest recordOf(const RemotePermission& permission);
/// All conversations. Of the runs of each there is at most the latest, and only where the host
/// lists it among its activities. Copies all texts.
std::vector<Workspace> recordsOf(const RemoteSnapshot& snapshot);

}  // namespace vantrell
