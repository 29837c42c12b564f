// What the Personal Gateway keeps: who may call it, and the jobs that callers gave it. Plain
// values.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/values/date.h"
#include "platform/values/uuid.h"
#include "records/values/agent_provider.h"
#include "records/values/raw_text.h"
#include "records/values/task_modes.h"

namespace vantrell {

enum class GatewayListenMode { localhost, privateNetwork };
constexpr auto rawTexts(GatewayListenMode) {
  return std::to_array<std::string_view>({"localhost", "private_network"});
}

/// A caller of the gateway and how far it may reach. The key itself is not kept.
struct SiteKey {
  Uuid id;
  std::string name;                                // trimmed, never empty
  std::string secretHash;                          // SHA-256 of the key, in Base64
  std::vector<std::string> allowedWorkspacePaths;  // canonical, sorted
  std::vector<AgentProvider> allowedProviders;     // sorted by raw text
  GrokPermissionMode maximumPermissionMode = GrokPermissionMode::ask;  // that a job may ask for
  Date createdAt;
  std::optional<Date> lastUsedAt;

  bool operator==(const SiteKey&) const = default;
};

struct GatewayConfiguration {
  bool enabled = false;
  GatewayListenMode listenMode = GatewayListenMode::localhost;
  std::int64_t port = 43767;
  std::vector<SiteKey> siteKeys;  // oldest first

  bool operator==(const GatewayConfiguration&) const = default;
};

enum class GatewayJobStatus {
  queued,
  starting,            // its client is being started
  working,             // the agent has the prompt
  waitingForApproval,  // the agent has asked: pendingApproval
  completed,
  failed,  // error
  cancelled
};
constexpr auto rawTexts(GatewayJobStatus) {
  return std::to_array<std::string_view>({"queued", "starting", "working", "waiting_for_approval",
                                          "completed", "failed", "cancelled"});
}
constexpr bool isFinished(GatewayJobStatus status) {
  return status >= GatewayJobStatus::completed;
}

struct GatewayApprovalOption {
  std::string id;
  std::string name;
  std::string kind;

  bool operator==(const GatewayApprovalOption&) const = default;
};

/// What the agent of a job waits for.
struct GatewayApproval {
  std::int64_t requestID = 0;
  std::string title;
  std::string detail;
  std::vector<GatewayApprovalOption> options;

  bool operator==(const GatewayApproval&) const = default;
};

struct GatewayJobEvent {
  Uuid id;
  Date timestamp;
  std::string type;  // "queued", "starting", "working", "tool", "attention", "approval" or an end
  std::string message;

  bool operator==(const GatewayJobEvent&) const = default;
};

struct GatewayJob {
  Uuid id;
  Uuid siteKeyID;
  Uuid projectID;             // of the workspace
  std::string workspacePath;  // when it was created
  std::string workspaceName;
  AgentProvider provider = AgentProvider::grok;
  std::string prompt;  // trimmed
  std::optional<std::string> model;
  std::optional<std::string> effort;
  GrokPermissionMode permissionMode = GrokPermissionMode::ask;
  std::optional<std::string> idempotencyKey;  // of the request that made it
  Date createdAt;
  std::optional<Date> startedAt;
  std::optional<Date> finishedAt;
  GatewayJobStatus status = GatewayJobStatus::queued;
  std::optional<std::string> sessionID;  // the runtime's own
  std::string output;                    // what the agent has said
  std::optional<std::string> error;
  std::optional<GatewayApproval> pendingApproval;
  std::vector<GatewayJobEvent> events;  // oldest first

  bool operator==(const GatewayJob&) const = default;
};

}  // namespace vantrell
