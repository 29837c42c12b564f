#include "remote/client/remote_records.h"

namespace vantrell {

namespace {

Date dateOf(double sinceUnixEpoch) {
  return Date::sinceUnixEpoch(sinceUnixEpoch);
}

std::optional<AgentProvider> providerOf(const std::optional<std::string>& id) {
  return id ? fromRawText<AgentProvider>(*id) : std::nullopt;
}

std::optional<ChatThread> recordOf(const RemoteThread& from) {
  const auto id = Uuid::parse(from.id);
  if (!id) return std::nullopt;
  ChatThread thread = ChatThread::make(from.title, dateOf(from.createdAt));
  thread.id = *id;
  thread.updatedAt = dateOf(from.updatedAt);
  thread.preferredProvider = providerOf(from.preferredProvider);
  thread.isPinned = from.isPinned.value_or(false);
  thread.isArchived = from.isArchived.value_or(false);
  if (from.workspaceMode == rawText(TaskWorkspaceMode::isolated)) {
    thread.workspaceMode = TaskWorkspaceMode::isolated;
  }
  std::vector<ChatEntry> entries;
  entries.reserve(from.entries.size());
  for (const auto& each : from.entries) {
    if (auto entry = recordOf(each)) entries.push_back(std::move(*entry));
  }
  for (const auto& entry : entries) {
    if (entry.provider) thread.lastProvider = entry.provider;
  }
  thread.entries = Transcript(std::move(entries));
  for (const auto& each : from.queuedPrompts) {
    if (const auto promptID = Uuid::parse(each.id)) {
      thread.queuedPrompts.push_back({*promptID, each.text, {}, dateOf(each.createdAt)});
    }
  }
  return thread;
}

}  // namespace

std::optional<ChatEntry> recordOf(const RemoteChatEntry& from) {
  const auto kind = fromRawText<ChatEntryKind>(from.kind);
  if (!kind) return std::nullopt;
  ChatEntry entry{.id = from.id,
                  .kind = *kind,
                  .text = from.text,
                  .title = from.title,
                  .status = from.status,
                  .provider = providerOf(from.provider),
                  .attachments = {},
                  .createdAt = dateOf(from.createdAt)};
  if (!from.attachments) return entry;
  for (const auto& each : *from.attachments) {
    const auto id = Uuid::parse(each.id);
    if (!id) continue;
    const auto attachmentKind = fromRawText<ChatAttachmentKind>(each.kind);
    entry.attachments.push_back({*id, each.displayName, each.path,
                                 attachmentKind.value_or(ChatAttachmentKind::file),
                                 each.contentType, each.byteCount});
  }
  return entry;
}

std::optional<RunRecord> recordOf(const RemoteRunActivity& from) {
  const auto id = Uuid::parse(from.id);
  const auto status = fromRawText<RunRecordStatus>(from.status);
  if (!id || !status) return std::nullopt;
  RunRecord run;
  run.id = *id;
  run.provider = providerOf(from.provider);
  run.status = *status;
  run.statusMessage = from.statusMessage;
  run.updatedAt = dateOf(from.updatedAt);
  run.startedAt = dateOf(from.startedAt.value_or(from.updatedAt));
  if (from.lastActivityAt) run.lastActivityAt = dateOf(*from.lastActivityAt);
  if (!isActive(*status)) run.completedAt = run.updatedAt;
  return run;
}

PermissionRequest recordOf(const RemotePermission& from) {
  PermissionRequest request{from.requestID, from.title, from.detail, {}};
  for (const auto& option : from.options) {
    request.options.push_back({option.id, option.name, option.kind});
  }
  return request;
}

std::vector<Workspace> recordsOf(const RemoteSnapshot& snapshot) {
  std::vector<Workspace> workspaces;
  for (const auto& from : snapshot.workspaces) {
    const auto id = Uuid::parse(from.id);
    if (!id) continue;
    Workspace workspace{*id, from.name, from.path, {}, from.isPinned.value_or(false)};
    for (const auto& each : from.threads) {
      if (auto thread = recordOf(each)) workspace.threads.push_back(std::move(*thread));
    }
    workspaces.push_back(std::move(workspace));
  }
  makeIDsUnique(workspaces);
  if (!snapshot.activities) return workspaces;
  for (const auto& activity : *snapshot.activities) {
    const auto threadID = Uuid::parse(activity.threadID);
    const auto run = recordOf(activity);
    if (!threadID || !run) continue;
    for (auto& workspace : workspaces) {
      if (auto* const thread = workspace.thread(*threadID)) thread->runs = {*run};
    }
  }
  return workspaces;
}

}  // namespace vantrell
