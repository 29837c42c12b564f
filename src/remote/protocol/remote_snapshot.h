// All that a client may know about a host, as it travels: identifiers and enumerations are texts,
// dates are seconds since 1970, labels are made by the host. Each snapshot replaces the one before.
// Fields that are optional without need are so for snapshots of older hosts. Plain values.
#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "records/stores/json_policy.h"
#include "records/values/host_update_status.h"

namespace vantrell {

struct RemoteChatAttachment {
  std::string id;
  std::string displayName;
  std::string path;
  std::string kind;  // "image", "file" or "directory"
  std::optional<std::string> contentType;
  std::optional<std::int64_t> byteCount;

  bool operator==(const RemoteChatAttachment&) const = default;
};

struct RemoteChatEntry {
  std::string id;
  std::string kind;  // "user", "assistant", "thought", "tool" or "system"
  std::string text;
  std::optional<std::string> title;
  std::optional<std::string> status;
  std::optional<std::string> provider;
  std::optional<std::vector<RemoteChatAttachment>> attachments;  // absent when there are none
  double createdAt = 0;

  bool operator==(const RemoteChatEntry&) const = default;
};

struct RemoteQueuedPrompt {
  std::string id;
  std::string text;
  double createdAt = 0;

  bool operator==(const RemoteQueuedPrompt&) const = default;
};

struct RemoteThread {
  std::string id;
  std::string title;
  std::optional<std::string> sessionID;
  double createdAt = 0;
  double updatedAt = 0;
  std::vector<RemoteChatEntry> entries;
  std::vector<RemoteQueuedPrompt> queuedPrompts;
  std::optional<std::string> workspaceMode;  // "shared" or "isolated"
  std::optional<std::int64_t> checkpointCount;
  std::optional<std::string> preferredProvider;
  std::optional<bool> isPinned;
  std::optional<bool> isArchived;

  bool operator==(const RemoteThread&) const = default;
};

struct RemoteWorkspace {
  std::string id;
  std::string name;
  std::string path;
  std::optional<bool> isGeneral;
  std::optional<bool> isPinned;
  std::vector<RemoteThread> threads;  // archived ones too
  std::optional<std::string> projectInstructions;
  std::optional<std::string> projectContextSummary;

  bool operator==(const RemoteWorkspace&) const = default;
};

struct RemoteRunActivity {
  std::string id;  // of the run
  std::string workspaceID;
  std::string workspaceName;
  std::string threadID;
  std::string threadTitle;
  std::optional<std::string> provider;
  std::string status;  // raw text of the run's status
  std::string statusLabel;
  std::optional<std::string> statusMessage;
  double updatedAt = 0;
  std::optional<double> startedAt;
  std::optional<double> lastActivityAt;

  bool operator==(const RemoteRunActivity&) const = default;
};

struct RemotePermissionOption {
  std::string id;
  std::string name;
  std::string kind;  // "allow_once", or one that begins with "reject"

  bool operator==(const RemotePermissionOption&) const = default;
};

struct RemotePermission {
  std::int64_t requestID = 0;
  std::string title;
  std::string detail;
  std::vector<RemotePermissionOption> options;

  bool operator==(const RemotePermission&) const = default;
};

struct RemoteModelOption {
  std::string id;
  std::string label;
  std::string detail;
  bool isDefault = false;

  bool operator==(const RemoteModelOption&) const = default;
};

struct RemoteEffortOption {
  std::string id;
  std::string label;
  std::string detail;

  bool operator==(const RemoteEffortOption&) const = default;
};

struct RemoteProviderDescriptor {
  std::string id;
  std::string label;
  std::string shortLabel;
  std::string category;           // "subscription", "local" or "cloud"
  std::string executionLocation;  // "this_mac", "local_network" or "cloud"
  std::string billingMode;  // "subscription", "local_compute", "external_plan" or "metered_api"
  bool available = false;
  bool tools = false;
  bool reasoningEffort = false;
  bool usageReporting = false;
  bool manualUsageReset = false;
  bool backgroundExecution = false;

  bool operator==(const RemoteProviderDescriptor&) const = default;
};

struct RemoteRoutingOption {
  std::string id;
  std::string label;
  std::string detail;
  bool available = false;

  bool operator==(const RemoteRoutingOption&) const = default;
};

struct RemoteProviderUsage {
  std::string provider;
  std::string label;
  std::optional<double> primaryUsedPercent;
  std::optional<double> secondaryUsedPercent;
  std::optional<double> resetsAt;
  bool exhausted = false;
  std::optional<std::int64_t> manualResetCredits;
  std::optional<std::string> manualResetCreditID;

  bool operator==(const RemoteProviderUsage&) const = default;
};

/// The bytes stay on the host until a client asks for them.
struct RemoteImagineItem {
  std::string id;
  std::string kind;  // "image" or "video"
  std::string prompt;
  std::string fileName;
  double createdAt = 0;

  bool operator==(const RemoteImagineItem&) const = default;
};

struct RemoteFleetHost {
  std::string id;
  std::string name;
  std::string platform;  // "macOS", "windows", "linux" or "android"
  std::string status;    // "online", "busy", "offline" or "needsAttention"
  std::vector<std::string> capabilities;

  bool operator==(const RemoteFleetHost&) const = default;
};

struct RemoteSnapshot {
  std::string hostName;
  double generatedAt = 0;
  std::string connectionStatus;  // "idle", "connecting", "ready", "working" or "failed"
  std::string connectionLabel;
  std::optional<std::string> selectedWorkspaceID;
  std::optional<std::string> selectedThreadID;
  std::vector<RemoteWorkspace> workspaces;
  std::optional<std::vector<RemoteRunActivity>> activities;
  std::optional<RemotePermission> permission;
  std::string permissionMode;
  std::string permissionModeLabel;
  std::string providerMode;
  std::string providerModeLabel;
  std::optional<std::string> workflowMode;
  std::optional<std::string> workflowModeLabel;
  std::optional<std::string> activeProvider;
  std::string activeProviderLabel;
  std::optional<std::string> sessionProvider;
  std::optional<std::string> sessionProviderLabel;
  std::optional<std::string> sessionModelID;
  std::optional<std::string> sessionModelLabel;
  std::optional<std::vector<RemoteModelOption>> sessionModelOptions;
  std::optional<std::string> sessionEffort;
  std::optional<std::string> sessionEffortLabel;
  std::optional<std::vector<RemoteEffortOption>> sessionEffortOptions;
  std::optional<std::vector<RemoteProviderDescriptor>> providers;
  std::optional<std::vector<RemoteRoutingOption>> routingOptions;
  std::optional<bool> noMeteredAPIs;
  std::vector<RemoteProviderUsage> providerUsages;
  std::string imagineStatus;  // as connectionStatus
  std::string imagineLabel;
  std::vector<RemoteImagineItem> imagineItems;
  std::optional<RemoteHostUpdateStatus> updateStatus;
  std::optional<std::vector<RemoteFleetHost>> fleetHosts;
  std::optional<std::int64_t> automationCount;
  std::optional<std::int64_t> diagnosticIssueCount;
  std::optional<std::string> projectContextSummary;
  std::optional<std::string> routingReason;

  bool operator==(const RemoteSnapshot&) const = default;
};

}  // namespace vantrell
