// The live state of one conversation that has run something since start-up. Owned by
// ExecutionTable, changed by the engine alone, never written to disk. Main queue.
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "engine/core/agent_session.h"
#include "engine/core/connection_state.h"
#include "engine/core/log_text.h"
#include "engine/core/plan_entry.h"
#include "engine/core/run_choices.h"
#include "platform/queues/dispatch.h"
#include "platform/values/uuid.h"
#include "records/values/task_modes.h"
#include "records/values/transcript.h"

namespace vantrell {

struct ThreadExecutionRuntime {
  ThreadExecutionRuntime(MainQueue& main, Date now)
      : session(std::make_shared<AgentSession>(main)), lastActivityAt(now) {}

  ~ThreadExecutionRuntime() { session->setListener(nullptr); }

  const std::shared_ptr<AgentClient>& client() const { return session->client(); }
  /// The open question of the client.
  const std::shared_ptr<const PermissionRequest>& permissionRequest() const {
    return session->question();
  }
  /// Ends the client with what waits for it, and a replay.
  void endClient();
  /// `length`: of the transcript.
  void beginReplay(std::size_t length);
  /// Drops what was played back so far.
  void endReplay();

  const std::shared_ptr<AgentSession> session;
  std::unique_ptr<AgentSession::Listener> listener;  // of the session, once a client was started
  ConnectionState connectionState;
  RunChoices choices;                           // for the turns of this conversation
  std::optional<AgentProvider> activeProvider;  // of the client
  RunChoices startedWith;                       // of the client: mode and program
  // Lists and long texts are shared, not copied.
  std::shared_ptr<const std::vector<PlanEntry>> plan = std::make_shared<std::vector<PlanEntry>>();
  std::optional<std::string> errorMessage;  // of the last failure, until the next success
  LogText cliLog;                           // cleared when a client starts
  bool isReplaying = false;                 // a resumed session plays its history back
  /// Entry id for agent text that comes without a message id; fresh for every turn.
  std::string fallbackMessageID = Uuid::random().text();

  std::optional<Uuid> activeRunID;  // while the run is live
  /// The user entry of the turn at hand: a runtime that plays the session back does not know it.
  std::optional<std::string> turnEntryID;
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
  Timer retryTimer;  // the pause before the second attempt to start
};

}  // namespace vantrell
