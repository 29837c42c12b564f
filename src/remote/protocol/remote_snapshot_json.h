// How the records of a snapshot are written and read as JSON (records/stores/json_fields.h): for
// the .cpp files that encode a snapshot or pieces of it, and nowhere else.
#pragma once

#include "records/stores/json_fields.h"
#include "remote/protocol/remote_snapshot.h"

namespace vantrell {

inline constexpr JsonPolicy remoteJson{JsonPolicy::DateForm::secondsSinceUnixEpoch};

constexpr auto fieldsOf(const RemoteHostUpdateStatus*) {
  using R = RemoteHostUpdateStatus;
  return fields(
      field("phase", &R::phase), field("label", &R::label), field("message", &R::message),
      field("currentVersion", &R::currentVersion), field("availableVersion", &R::availableVersion),
      field("progress", &R::progress), field("requiresDecision", &R::requiresDecision),
      field("activeWorkCount", &R::activeWorkCount), field("queuedTaskCount", &R::queuedTaskCount),
      field("waitingUntilIdle", &R::waitingUntilIdle));
}

constexpr auto fieldsOf(const RemoteChatAttachment*) {
  using R = RemoteChatAttachment;
  return fields(field("id", &R::id), field("displayName", &R::displayName), field("path", &R::path),
                field("kind", &R::kind), field("contentType", &R::contentType),
                field("byteCount", &R::byteCount));
}

constexpr auto fieldsOf(const RemoteChatEntry*) {
  using R = RemoteChatEntry;
  return fields(field("id", &R::id), field("kind", &R::kind), field("text", &R::text),
                field("title", &R::title), field("status", &R::status),
                field("provider", &R::provider), field("attachments", &R::attachments),
                field("createdAt", &R::createdAt));
}

constexpr auto fieldsOf(const RemoteQueuedPrompt*) {
  using R = RemoteQueuedPrompt;
  return fields(field("id", &R::id), field("text", &R::text), field("createdAt", &R::createdAt));
}

constexpr auto fieldsOf(const RemoteThread*) {
  using R = RemoteThread;
  return fields(field("id", &R::id), field("title", &R::title), field("sessionID", &R::sessionID),
                field("createdAt", &R::createdAt), field("updatedAt", &R::updatedAt),
                field("entries", &R::entries), field("queuedPrompts", &R::queuedPrompts),
                field("workspaceMode", &R::workspaceMode),
                field("checkpointCount", &R::checkpointCount),
                field("preferredProvider", &R::preferredProvider), field("isPinned", &R::isPinned),
                field("isArchived", &R::isArchived));
}

constexpr auto fieldsOf(const RemoteWorkspace*) {
  using R = RemoteWorkspace;
  return fields(field("id", &R::id), field("name", &R::name), field("path", &R::path),
                field("isGeneral", &R::isGeneral), field("isPinned", &R::isPinned),
                field("threads", &R::threads),
                field("projectInstructions", &R::projectInstructions),
                field("projectContextSummary", &R::projectContextSummary));
}

constexpr auto fieldsOf(const RemoteRunActivity*) {
  using R = RemoteRunActivity;
  return fields(field("id", &R::id), field("workspaceID", &R::workspaceID),
                field("workspaceName", &R::workspaceName), field("threadID", &R::threadID),
                field("threadTitle", &R::threadTitle), field("provider", &R::provider),
                field("status", &R::status), field("statusLabel", &R::statusLabel),
                field("statusMessage", &R::statusMessage), field("updatedAt", &R::updatedAt),
                field("startedAt", &R::startedAt), field("lastActivityAt", &R::lastActivityAt));
}

constexpr auto fieldsOf(const RemotePermissionOption*) {
  using R = RemotePermissionOption;
  return fields(field("id", &R::id), field("name", &R::name), field("kind", &R::kind));
}

constexpr auto fieldsOf(const RemotePermission*) {
  using R = RemotePermission;
  return fields(field("requestID", &R::requestID), field("title", &R::title),
                field("detail", &R::detail), field("options", &R::options));
}

constexpr auto fieldsOf(const RemoteModelOption*) {
  using R = RemoteModelOption;
  return fields(field("id", &R::id), field("label", &R::label), field("detail", &R::detail),
                field("isDefault", &R::isDefault));
}

constexpr auto fieldsOf(const RemoteEffortOption*) {
  using R = RemoteEffortOption;
  return fields(field("id", &R::id), field("label", &R::label), field("detail", &R::detail));
}

constexpr auto fieldsOf(const RemoteProviderDescriptor*) {
  using R = RemoteProviderDescriptor;
  return fields(field("id", &R::id), field("label", &R::label), field("shortLabel", &R::shortLabel),
                field("category", &R::category), field("executionLocation", &R::executionLocation),
                field("billingMode", &R::billingMode), field("available", &R::available),
                field("tools", &R::tools), field("reasoningEffort", &R::reasoningEffort),
                field("usageReporting", &R::usageReporting),
                field("manualUsageReset", &R::manualUsageReset),
                field("backgroundExecution", &R::backgroundExecution));
}

constexpr auto fieldsOf(const RemoteRoutingOption*) {
  using R = RemoteRoutingOption;
  return fields(field("id", &R::id), field("label", &R::label), field("detail", &R::detail),
                field("available", &R::available));
}

constexpr auto fieldsOf(const RemoteProviderUsage*) {
  using R = RemoteProviderUsage;
  return fields(field("provider", &R::provider), field("label", &R::label),
                field("primaryUsedPercent", &R::primaryUsedPercent),
                field("secondaryUsedPercent", &R::secondaryUsedPercent),
                field("resetsAt", &R::resetsAt), field("exhausted", &R::exhausted),
                field("manualResetCredits", &R::manualResetCredits),
                field("manualResetCreditID", &R::manualResetCreditID));
}

constexpr auto fieldsOf(const RemoteImagineItem*) {
  using R = RemoteImagineItem;
  return fields(field("id", &R::id), field("kind", &R::kind), field("prompt", &R::prompt),
                field("fileName", &R::fileName), field("createdAt", &R::createdAt));
}

constexpr auto fieldsOf(const RemoteFleetHost*) {
  using R = RemoteFleetHost;
  return fields(field("id", &R::id), field("name", &R::name), field("platform", &R::platform),
                field("status", &R::status), field("capabilities", &R::capabilities));
}

constexpr auto fieldsOf(const RemoteSnapshot*) {
  using R = RemoteSnapshot;
  return fields(
      field("hostName", &R::hostName), field("generatedAt", &R::generatedAt),
      field("connectionStatus", &R::connectionStatus),
      field("connectionLabel", &R::connectionLabel),
      field("selectedWorkspaceID", &R::selectedWorkspaceID),
      field("selectedThreadID", &R::selectedThreadID), field("workspaces", &R::workspaces),
      field("activities", &R::activities), field("permission", &R::permission),
      field("permissionMode", &R::permissionMode),
      field("permissionModeLabel", &R::permissionModeLabel),
      field("providerMode", &R::providerMode), field("providerModeLabel", &R::providerModeLabel),
      field("workflowMode", &R::workflowMode), field("workflowModeLabel", &R::workflowModeLabel),
      field("activeProvider", &R::activeProvider),
      field("activeProviderLabel", &R::activeProviderLabel),
      field("sessionProvider", &R::sessionProvider),
      field("sessionProviderLabel", &R::sessionProviderLabel),
      field("sessionModelID", &R::sessionModelID),
      field("sessionModelLabel", &R::sessionModelLabel),
      field("sessionModelOptions", &R::sessionModelOptions),
      field("sessionEffort", &R::sessionEffort),
      field("sessionEffortLabel", &R::sessionEffortLabel),
      field("sessionEffortOptions", &R::sessionEffortOptions), field("providers", &R::providers),
      field("routingOptions", &R::routingOptions), field("noMeteredAPIs", &R::noMeteredAPIs),
      field("providerUsages", &R::providerUsages), field("imagineStatus", &R::imagineStatus),
      field("imagineLabel", &R::imagineLabel), field("imagineItems", &R::imagineItems),
      field("updateStatus", &R::updateStatus), field("fleetHosts", &R::fleetHosts),
      field("automationCount", &R::automationCount),
      field("diagnosticIssueCount", &R::diagnosticIssueCount),
      field("projectContextSummary", &R::projectContextSummary),
      field("routingReason", &R::routingReason));
}

}  // namespace vantrell
