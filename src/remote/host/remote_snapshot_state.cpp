#include "remote/host/remote_snapshot_state.h"

#include <algorithm>
#include <map>
#include <unistd.h>

#include "engine/core/execution_table.h"
#include "engine/core/selection.h"
#include "engine/core/settings.h"
#include "engine/core/workspace_tree.h"
#include "engine/imagine/imagine_controller.h"
#include "engine/projects/project_context_service.h"
#include "engine/providers/router.h"
#include "engine/providers/session_controls.h"
#include "engine/providers/usage_tracker.h"
#include "engine/tasks/run_activity.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "runtimes/catalog/provider_registry.h"
#include "views/approval_card.h"
#include "views/labels.h"

namespace vantrell {

namespace {

std::optional<double> seconds(const std::optional<Date>& date) {
  return date ? std::optional(date->secondsSinceUnixEpoch()) : std::nullopt;
}

template <typename Enumeration>
std::optional<std::string> optionalRawText(const std::optional<Enumeration>& value) {
  return value ? std::optional<std::string>(rawText(*value)) : std::nullopt;
}

std::optional<std::string> optionalText(const std::optional<Uuid>& id) {
  return id ? std::optional(id->text()) : std::nullopt;
}

RemoteRunActivity remoteActivity(const RunActivity& activity) {
  const auto& run = activity.run;
  return {.id = run.id.text(),
          .workspaceID = activity.workspaceID.text(),
          .workspaceName = activity.workspaceName,
          .threadID = activity.threadID.text(),
          .threadTitle = activity.threadTitle,
          .provider = optionalRawText(run.provider),
          .status = std::string(rawText(run.status)),
          .statusLabel = std::string(views::label(run.status)),
          .statusMessage = run.statusMessage,
          .updatedAt = run.updatedAt.secondsSinceUnixEpoch(),
          .startedAt = run.startedAt.secondsSinceUnixEpoch(),
          .lastActivityAt = seconds(run.lastActivityAt)};
}

RemotePermission remotePermission(const PermissionRequest& request) {
  RemotePermission permission{request.id, request.title, request.detail, {}};
  for (auto& each : views::optionsForDevices(request)) {
    permission.options.push_back({each.id, each.name, each.kind});
  }
  return permission;
}

RemoteProviderDescriptor remoteProvider(const ProviderDescriptor& provider, bool available) {
  const auto& can = provider.capabilities;
  return {.id = std::string(rawText(provider.id)),
          .label = provider.label,
          .shortLabel = provider.shortLabel,
          .category = std::string(rawText(provider.category)),
          .executionLocation = std::string(rawText(provider.executionLocation)),
          .billingMode = std::string(rawText(provider.billingMode)),
          .available = available,
          .tools = can.tools,
          .reasoningEffort = can.reasoningEffort,
          .usageReporting = can.usageReporting,
          .manualUsageReset = can.manualUsageReset,
          .backgroundExecution = can.backgroundExecution};
}

RemoteProviderUsage remoteUsage(const ProviderUsage& usage) {
  return {.provider = std::string(rawText(usage.provider)),
          .label = ProviderRegistry::descriptor(usage.provider).label,
          .primaryUsedPercent = usage.primaryUsedPercent,
          .secondaryUsedPercent = usage.secondaryUsedPercent,
          .resetsAt = seconds(usage.resetsAt),
          .exhausted = usage.exhausted,
          .manualResetCredits = usage.manualResetCredits,
          .manualResetCreditID = usage.manualResetCreditID};
}

void addSession(RemoteSnapshot& snapshot, const RemoteSnapshotSources& from,
                const std::optional<ThreadExecutionKey>& key) {
  const auto provider = from.controls.sessionConfigurationProvider(key);
  const auto* thread = key ? from.tree.thread(*key) : nullptr;
  snapshot.sessionProvider = rawText(provider);
  snapshot.sessionProviderLabel = ProviderRegistry::descriptor(provider).label;
  snapshot.sessionModelID = (thread ? thread->modelID(provider) : std::nullopt).value_or("default");
  snapshot.sessionModelLabel = from.controls.sessionModelLabel(key);
  snapshot.sessionEffort = (thread ? thread->effort(provider) : std::nullopt).value_or("default");
  snapshot.sessionEffortLabel = from.controls.sessionEffortLabel(key);
  auto& models = snapshot.sessionModelOptions.emplace();
  for (const auto& each : from.controls.sessionModelOptions(key)) {
    models.push_back({each.id, each.label, each.detail, each.isDefault});
  }
  auto& efforts = snapshot.sessionEffortOptions.emplace();
  for (const auto& each : from.controls.sessionEffortOptions(key)) {
    efforts.push_back({each.id, each.label, each.detail});
  }
}

void addProviders(RemoteSnapshot& snapshot, const RemoteSnapshotSources& from) {
  std::map<AgentProvider, bool> available;  // each is asked once
  auto& providers = snapshot.providers.emplace();
  for (const auto& each : ProviderRegistry::all()) {
    available[each.id] = from.router.providerAvailable(each.id);
    providers.push_back(remoteProvider(each, available[each.id]));
  }
  auto& routes = snapshot.routingOptions.emplace();
  for (const auto& each :
       views::routingOptions([&](AgentProvider provider) { return available[provider]; })) {
    routes.push_back(
        {std::string(each.id), std::string(each.label), std::string(each.detail), each.available});
  }
  for (const auto& [provider, usage] : from.usage.providerUsage()) {
    snapshot.providerUsages.push_back(remoteUsage(usage));
  }
  std::ranges::sort(snapshot.providerUsages, {}, &RemoteProviderUsage::provider);
}

void addImagine(RemoteSnapshot& snapshot, const ImagineController& imagine) {
  const auto state = imagine.imagineState().kind;
  snapshot.imagineStatus = views::statusWord(state);
  snapshot.imagineLabel = views::imagineLabel(state, imagine.imagineProgress());
  for (const auto& each : imagine.imagineItems()) {
    snapshot.imagineItems.push_back({each.id.text(), std::string(rawText(each.kind)), each.prompt,
                                     each.fileName, each.createdAt.secondsSinceUnixEpoch()});
  }
}

}  // namespace

RemoteSnapshot remoteSnapshotState(const RemoteSnapshotSources& from) {
  const auto key = from.selection.key();
  const auto* execution = key ? from.executions.find(*key) : nullptr;
  const auto connection = execution ? execution->connectionState.kind : ConnectionState::Kind::idle;
  const auto active = execution ? execution->activeProvider : std::nullopt;
  const auto& settings = from.settings;

  RemoteSnapshot snapshot;
  snapshot.hostName = from.hostName;
  snapshot.generatedAt = from.main.now().secondsSinceUnixEpoch();
  snapshot.connectionStatus = views::statusWord(connection);
  snapshot.connectionLabel = views::connectionLabel(connection);
  snapshot.selectedWorkspaceID = optionalText(from.selection.workspaceID());
  snapshot.selectedThreadID = optionalText(from.selection.threadID());
  auto& runs = snapshot.activities.emplace();
  for (const auto& each : activities(from.tree.workspaces(), from.main.now())) {
    runs.push_back(remoteActivity(each));
  }
  if (const auto question = remoteQuestion(from.executions, from.selection); question.request) {
    snapshot.permission = remotePermission(*question.request);
  }
  snapshot.permissionMode = rawText(settings.permissionMode());
  snapshot.permissionModeLabel = views::label(settings.permissionMode());
  snapshot.providerMode = rawText(settings.routingMode());
  snapshot.providerModeLabel = views::label(settings.routingMode());
  snapshot.workflowMode = rawText(settings.workflowMode());
  snapshot.workflowModeLabel = views::label(settings.workflowMode());
  snapshot.activeProvider = optionalRawText(active);
  snapshot.activeProviderLabel = views::activeProviderLabel(active, settings.routingMode());
  snapshot.noMeteredAPIs = settings.noMeteredAPIs();
  snapshot.projectContextSummary = from.context.projectContext().summary();
  snapshot.routingReason = from.router.routingPreview(key).reason;
  addSession(snapshot, from, key);
  addProviders(snapshot, from);
  addImagine(snapshot, from.imagine);
  if (from.addFeatures) from.addFeatures(snapshot);
  return snapshot;
}

RemoteThread remoteThreadHead(const ChatThread& thread) {
  RemoteThread head{.id = thread.id.text(),
                    .title = thread.title,
                    .sessionID = thread.sessionId,
                    .createdAt = thread.createdAt.secondsSinceUnixEpoch(),
                    .updatedAt = thread.updatedAt.secondsSinceUnixEpoch(),
                    .entries = {},
                    .queuedPrompts = {},
                    .workspaceMode = std::string(rawText(thread.workspaceMode)),
                    .checkpointCount = static_cast<std::int64_t>(thread.checkpoints.size()),
                    .preferredProvider = optionalRawText(thread.preferredProvider),
                    .isPinned = thread.isPinned,
                    .isArchived = thread.isArchived};
  for (const auto& each : thread.queuedPrompts) {
    head.queuedPrompts.push_back(
        {each.id.text(), each.text, each.createdAt.secondsSinceUnixEpoch()});
  }
  return head;
}

RemoteChatEntry remoteEntry(ChatEntry entry) {
  RemoteChatEntry made{.id = std::move(entry.id),
                       .kind = std::string(rawText(entry.kind)),
                       .text = std::move(entry.text),
                       .title = std::move(entry.title),
                       .status = std::move(entry.status),
                       .provider = optionalRawText(entry.provider),
                       .attachments = {},
                       .createdAt = entry.createdAt.secondsSinceUnixEpoch()};
  for (auto& each : entry.attachments) {
    if (!made.attachments) made.attachments.emplace();
    made.attachments->push_back({each.id.text(), std::move(each.displayName), std::move(each.path),
                                 std::string(rawText(each.kind)), std::move(each.contentType),
                                 each.byteCount});
  }
  return made;
}

RemoteWorkspace remoteWorkspaceHead(const Workspace& workspace, bool isGeneral,
                                    const ProjectContextProfile* context) {
  RemoteWorkspace head{.id = workspace.id.text(),
                       .name = workspace.name,
                       .path = workspace.path,
                       .isGeneral = isGeneral,
                       .isPinned = workspace.isPinned,
                       .threads = {},
                       .projectInstructions = {},
                       .projectContextSummary = {}};
  if (context && !isGeneral) {
    head.projectInstructions = context->instructions;
    head.projectContextSummary = context->summary();
  }
  return head;
}

RemoteQuestion remoteQuestion(const ExecutionTable& executions, const Selection& selection) {
  const auto key = selection.key();
  const auto* execution = key ? executions.find(*key) : nullptr;
  if (execution && execution->permissionRequest()) return {execution->permissionRequest(), key};
  return {executions.imagine().permissionRequest, std::nullopt};
}

}  // namespace vantrell
