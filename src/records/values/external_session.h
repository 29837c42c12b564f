// Sessions that the agents' own programs know, made outside Vantrell, and what a scan for them has
// found. Plain values.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "platform/values/date.h"
#include "records/values/agent_provider.h"
#include "records/values/conversation_records.h"

namespace vantrell {

struct ExternalProviderSession {
  AgentProvider provider = AgentProvider::grok;
  std::string sessionID;  // the program's own
  std::string title;
  std::string workspacePath;             // of its working folder
  Date createdAt = Date::distantPast();  // where unknown
  Date updatedAt = Date::distantPast();  // the same
  ExternalSessionActivity activity = ExternalSessionActivity::unknown;
  std::string sourceLabel;  // "Grok Build", "Codex", "Kimi Code", "OpenCode"

  bool operator==(const ExternalProviderSession&) const = default;
};

struct ExternalSessionDiscoveryState {
  enum class Kind {
    available,    // count
    resumeOnly,   // no listing is possible, to resume by id works: reason
    unavailable,  // this provider cannot be scanned: reason
    failed,       // reason
    notScanned
  };
  Kind kind = Kind::notScanned;
  std::size_t count = 0;  // of the sessions that were kept
  std::string reason;

  bool operator==(const ExternalSessionDiscoveryState&) const = default;
};

struct ExternalSessionDiscoveryReport {
  AgentProvider provider = AgentProvider::grok;
  ExternalSessionDiscoveryState state;

  bool operator==(const ExternalSessionDiscoveryReport&) const = default;
};

struct ExternalSessionScanResult {
  std::vector<ExternalProviderSession> sessions;  // newest first
  std::map<AgentProvider, ExternalSessionDiscoveryReport> reports;
};

}  // namespace vantrell
