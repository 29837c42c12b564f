// The one interface through which tasks are driven: whatever a runtime speaks natively, its client
// turns it into this vocabulary.
//
// A client belongs to one conversation. It is made, started once and stopped once; a new process
// means a new client. All operations are called on the main queue and none of them blocks; every
// callback and completion arrives on the main queue, in the order in which the runtime sent things.
#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/values/json.h"
#include "records/values/agent_provider.h"
#include "runtimes/wire/agent_error.h"
#include "runtimes/wire/provider_options.h"
#include "runtimes/wire/provider_usage.h"

namespace vantrell {

struct AgentStartResult {
  std::string sessionId;         // the session now open
  bool replayedSession = false;  // resumed, its history replayed or restored by the runtime
  /// What the user should know about the session: a setting that the runtime did not take.
  std::optional<std::string> notice{};
};

struct PermissionOption {
  std::string id;    // goes back with the answer
  std::string name;  // on the button
  std::string kind;  // "allow_once", "allow_always", "reject_once" or what else a runtime sends
};

struct PermissionRequest {
  std::int64_t id = 0;  // unique within the client
  std::string title;
  std::string detail;
  std::vector<PermissionOption> options;
};

class AgentClient {
 public:
  using StartCompletion = std::function<void(std::expected<AgentStartResult, AgentError>)>;
  using PromptCompletion = std::function<void(std::expected<JsonObject, AgentError>)>;

  virtual ~AgentClient() = default;
  virtual AgentProvider provider() const = 0;

  /// One session update in the vocabulary of the Agent Client Protocol: a dictionary whose key
  /// "sessionUpdate" names the kind.
  std::function<void(const JsonObject& update)> onSessionUpdate;
  /// The runtime wants a decision.
  std::function<void(PermissionRequest)> onPermissionRequest;
  /// The runtime has withdrawn a request that it made.
  std::function<void(std::int64_t requestID)> onPermissionWithdrawn;
  /// The runtime works on, but cannot go on until something has changed: what it waits for, in a
  /// sentence.
  std::function<void(std::string text)> onWaiting;
  /// The runtime reported its models and efforts.
  std::function<void(std::vector<ProviderModelOption>)> onModelOptionsUpdate;
  /// Diagnostic text from the runtime.
  std::function<void(std::string text)> onLog;
  /// A stored session began to replay, and could not be replayed: the client has gone on to a new
  /// session.
  std::function<void()> onReplayStarted;
  std::function<void()> onReplayFailed;
  /// The runtime went away without stop(); at most once.
  std::function<void(std::string text)> onUnexpectedTermination;
  /// Fresh allowance numbers.
  std::function<void(ProviderUsage)> onUsageUpdate;

  /// Brings the runtime up, resuming the session when it can. A resume that fails leads to a new
  /// session, not to an error, but with Claude Code, which ends over it. The completion is called
  /// exactly once.
  virtual void start(std::optional<std::string> existingSessionID, StartCompletion completion) = 0;
  /// Runs one turn with the complete prompt. Completes when the turn has ended, after its last
  /// update; a cancelled turn ends so too. One turn at a time.
  virtual void sendPrompt(std::string prompt, PromptCompletion completion) = 0;
  /// Asks the runtime to stop the turn and withdraws every open permission request.
  virtual void cancel() = 0;
  /// Answers a request once. An unknown or answered id is ignored.
  virtual void respondToPermission(std::int64_t requestID, std::string optionID) = 0;
  /// While false, nothing is handed out and the runtime is held back: the interface cannot take
  /// more at the moment. A client that hands out little may ignore it.
  virtual void setReceiving(bool /*receiving*/) {}
  /// Ends the runtime and fails what is pending as disconnected, without onUnexpectedTermination.
  virtual void stop() = 0;
};

}  // namespace vantrell
