// The life of a run: starting, working, waiting, resumed, completed, failed, cancelled. Each step
// changes the run, the live state, the marks of activity and the message for other clients
// together; nothing else writes the fields of a run or the connection state of a conversation.
// Main queue.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "engine/core/engine_events.h"
#include "engine/core/execution_table.h"
#include "engine/core/workspace_tree.h"

namespace vantrell {

class RunLifecycle {
 public:
  RunLifecycle(MainQueue& main, WorkspaceTree& tree, ExecutionTable& executions,
               EngineEvents& events);

  /// What a turn that is on its way to its run knows of its conversation.
  struct Preparation {
    bool clientWasReady = false;
    int stopCount = 0;
  };
  /// A prompt was given, as this entry: the conversation is busy from now on, though its run has
  /// not begun.
  Preparation preparing(const ThreadExecutionKey& key, std::string entryID);
  /// Whether the turn was stopped since, or its conversation has gone.
  bool wasStopped(const ThreadExecutionKey& key, const Preparation& preparation) const;
  /// Begins the run of the turn. One that is under way there is cancelled: a newer prompt takes its
  /// place.
  Uuid begin(std::string prompt, const ThreadExecutionKey& key);
  void routed(const ThreadExecutionKey& key, const Uuid& runID, std::optional<std::string> reason);
  /// A client of the provider is being started, for the run where there is one.
  void connecting(const ThreadExecutionKey& key, const std::optional<Uuid>& runID,
                  AgentProvider provider);
  /// The first attempt has taken too long; `again` follows after the pause, unless the turn is
  /// stopped or gets another client.
  void retrying(const ThreadExecutionKey& key, const std::optional<Uuid>& runID,
                AgentProvider provider, std::function<void()> again);
  /// The session is open and nothing is under way in it yet.
  void connected(const ThreadExecutionKey& key);
  /// The prompt goes to the provider.
  void working(const ThreadExecutionKey& key, const Uuid& runID, AgentProvider provider);
  /// The next provider takes the turn, since the allowance of the first is used up.
  void handingOff(const ThreadExecutionKey& key, const Uuid& runID, AgentProvider from,
                  AgentProvider to);
  /// The agent has opened a question.
  void waiting(const ThreadExecutionKey& key, const std::string& title);
  /// The question is answered or withdrawn.
  void resumed(const ThreadExecutionKey& key, bool isDecided);
  /// A sign of life of the agent, with a run or without one.
  void active(const ThreadExecutionKey& key);
  /// The agent is at work, but waits for something outside, as the network: what the run says.
  void waitsFor(const ThreadExecutionKey& key, const std::string& text);
  /// The agent has been silent for long.
  void stalled(const ThreadExecutionKey& key, const std::string& text);

  void completed(const ThreadExecutionKey& key, const Uuid& runID, AgentProvider provider);
  struct Failure {
    std::string description;                          // as the connection state holds it
    std::string text;                                 // for the user: error message and run
    std::optional<std::string> entry = std::nullopt;  // in the transcript
    bool isActivity = false;                          // the conversation's last sign of life
    bool isTold = true;                               // to other clients and notifications
  };
  /// Ends the run, where there is one, as failed. The client stays as it is. The id is a copy: it
  /// may be the live state's own, which is cleared on the way.
  void failed(const ThreadExecutionKey& key, std::optional<Uuid> runID, const Failure& failure);
  /// The runtime has gone away by itself. A turn that is only on its way to a client, this one or
  /// another, does not end with it: it finds no client and starts one.
  void clientLost(const ThreadExecutionKey& key, const std::string& text);
  /// The user stops what is under way; says so in the transcript. The client stays, unless it was
  /// still being started. False where nothing was under way.
  bool stop(const ThreadExecutionKey& key);

  /// Ends the client of the conversation and forgets its live state, so that the next turn starts a
  /// new client under the present settings. A run that is under way ends with it, with this reason.
  void resetConnection(const ThreadExecutionKey& key, std::string_view reason = connectionReset);
  /// The same for a conversation that goes: nothing is written into it.
  void forget(const ThreadExecutionKey& key);
  /// Ends the client alone: a turn that is on its way finds none, and starts one.
  void endClient(const ThreadExecutionKey& key);
  /// resetConnection() wherever a client is kept that does nothing, and no question is open.
  void resetIdleConnections();
  /// The tools that the conversation's client has told of and not ended count as failed; a later
  /// update still wins.
  void endOpenTools(const ThreadExecutionKey& key);
  /// Asks every client to stop its turn, ends it and forgets the live state; runs under way end
  /// with this reason.
  void stopAll(std::string_view reason);
  /// For the end of the program: ends every client. The next start tells of runs left open.
  void endAll();

  static constexpr std::chrono::milliseconds pauseBeforeRetry{500};
  static constexpr std::string_view connectionReset =
      "Stopped: the connection to the agent was reset.";

 private:
  void markActivity(ThreadExecutionRuntime& execution);
  void cancelRun(const std::optional<Uuid>& runID, const ThreadExecutionKey& key,
                 std::string_view reason);
  void endOpenTools(ThreadExecutionRuntime& execution, const ThreadExecutionKey& key);

  MainQueue& main_;
  WorkspaceTree& tree_;
  ExecutionTable& executions_;
  EngineEvents& events_;
};

}  // namespace vantrell
