// The live state of one conversation that has run something since start-up. Owned by
// ExecutionTable, changed by the desks of the engine, never written to disk. Main queue.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "engine/core/connection_state.h"
#include "engine/core/log_text.h"
#include "engine/core/plan_entry.h"
#include "platform/queues/dispatch.h"
#include "platform/values/uuid.h"
#include "records/values/transcript.h"
#include "runtimes/wire/agent_client.h"

namespace vantrell {

/// Who asked the open question: a conversation's client or the media generator's.
enum class PermissionOwner { build, imagine };

/// The part of the live state that the interface sees. Lists and long texts are shared, not copied.
struct ExecutionViewState {
  std::shared_ptr<AgentClient> client;  // at most one a conversation
  ConnectionState connectionState;
  std::optional<AgentProvider> activeProvider;  // of `client`
  std::shared_ptr<const std::vector<PlanEntry>> plan = std::make_shared<std::vector<PlanEntry>>();
  PermissionOwner permissionOwner = PermissionOwner::build;
  std::shared_ptr<const PermissionRequest> permissionRequest;  // the open question
  std::optional<std::string> errorMessage;                     // of the last failure
  LogText cliLog;                                              // cleared when a client starts
  bool isReplaying = false;  // a resumed session plays its history back
  /// Entry id for agent text that comes without a message id; fresh for every turn.
  std::string fallbackMessageID = Uuid::random().text();
};

struct ThreadExecutionRuntime : ExecutionViewState {
  explicit ThreadExecutionRuntime(Date now) : lastActivityAt(now) {}

  /// Takes the client away and ends it, with what waits for it: its connection timer, and a replay.
  /// The client goes first, so that nothing it still says finds itself serving.
  void endClient();
  /// `length`: of the transcript.
  void beginReplay(std::size_t length);
  /// Drops what was played back so far.
  void endReplay();
  /// Lets the prompt go on that waits for the end of a stopped turn, if there is one.
  void tellStoppedTurnEnded(bool isClientUsable);

  std::optional<Uuid> activeRunID;  // while the run is live
  /// The user entry of the turn at hand: a runtime that plays the session back does not know it.
  std::optional<std::string> turnEntryID;
  /// Prompts that its client has not answered yet; a stopped turn's counts until the runtime ends
  /// it.
  int unansweredPrompts = 0;
  /// What the next prompt does once those are answered; unset where none waits.
  std::function<void(bool isClientUsable)> stoppedTurnEnded;
  /// Entries of tools that its client has told of and not ended.
  std::set<std::string, std::less<>> openTools;
  /// How often the user has stopped a turn here: a turn that was begun before a stop ends at it.
  int stopCount = 0;
  /// The run that failed because its client went away: when the client tells how it ended, that is
  /// the better text for it.
  std::optional<Uuid> runLostWithClient;
  Date lastActivityAt;
  Date lastPersistedActivityAt = Date::distantPast();
  bool stallWarningSent = false;
  /// What was played back so far, while isReplaying. The conversation keeps its entries until the
  /// replay has succeeded, so a replay that fails changes nothing.
  std::unique_ptr<Transcript> playback;
  std::size_t lengthBeforePlayback = 0;
  /// The connect watchdog, the pause before the second attempt, or the wait for a stopped turn.
  Timer connectTimer;
};

}  // namespace vantrell
