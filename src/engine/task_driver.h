// Drives every task: how a prompt becomes a run, reaches a client, and ends. The steps of a turn
// stand in one function each, in their fixed order. Main queue.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "engine/client_starter.h"
#include "engine/engine_core.h"
#include "engine/git_desk.h"
#include "engine/hook_desk.h"
#include "engine/project_context_desk.h"
#include "engine/router.h"
#include "engine/turn_failures.h"
#include "engine/usage_desk.h"

namespace vantrell {

class TaskDriver : public std::enable_shared_from_this<TaskDriver> {
 public:
  TaskDriver(EngineCore& core, ClientStarter& starter, TurnFailures& failures, UsageDesk& usage,
             Router& router, ProjectContextDesk& context, GitDesk& git, HookDesk& hooks);

  /// A workspace is selected and its conversation is not busy.
  bool canSend() const;
  /// A workspace is selected: while a turn runs a prompt is queued.
  bool canSubmitPrompt() const;

  /// What the composer calls: answers a question about the session, queues while the conversation
  /// is busy, else starts a turn. Text of white space alone does nothing.
  void send(std::string_view text, std::vector<ChatAttachment> attachments);
  /// Starts a turn now, whatever the state. The one door to a turn.
  void sendNow(std::string text, std::vector<ChatAttachment> attachments,
               const ThreadExecutionKey& key);
  void sendNow(std::string text, std::vector<ChatAttachment> attachments);
  /// Ends the selected conversation's turn. Its client stays, unless it was still connecting;
  /// nothing queued starts.
  void stopWorking();

  /// How long the next prompt waits for the end of a turn that was stopped; then its client is
  /// replaced by another in the same session.
  static constexpr std::chrono::seconds stopPatience{10};

 private:
  /// What one turn carries along.
  struct Turn {
    ThreadExecutionKey key;
    Uuid runID;
    std::string originalPrompt;  // as assembled
    std::set<AgentProvider> attempted;
    bool clientWasReady = false;  // when the turn began
  };
  using PromptResult = std::expected<JsonObject, AgentError>;

  void beginTurn(const std::string& text, const std::vector<ChatAttachment>& attachments,
                 const ThreadExecutionKey& key, bool clientWasReady, int stopCount);
  bool isLive(const Turn& turn) const;
  void routePrompt(const Turn& turn);
  void takeRoute(Turn turn);
  void switchProvider(Turn turn, AgentProvider from, AgentProvider to);
  void deliver(std::string prompt, Turn turn, AgentProvider provider);
  void startAndSend(std::string prompt, Turn turn, AgentProvider provider);
  void sendBehindStoppedTurn(std::string prompt, Turn turn, AgentProvider provider);
  void performSend(const std::string& prompt, const Turn& turn, AgentProvider provider);
  void turnCompleted(const Turn& turn, AgentProvider provider);
  void turnFailed(const AgentError& error, const Turn& turn, AgentProvider provider);
  void fail(const AgentError& error, const Turn& turn, AgentProvider provider);
  void handOff(Turn turn, AgentProvider from, AgentProvider to);
  void buildCapsule(const Turn& turn, AgentProvider from, AgentProvider to,
                    std::function<void(TaskDriver&, std::string capsule)> then);

  MainQueue& main_;
  Settings& settings_;
  WorkspaceTree& tree_;
  Selection& selection_;
  ExecutionTable& executions_;
  ClientStarter& starter_;
  TurnFailures& failures_;
  UsageDesk& usage_;
  Router& router_;
  ProjectContextDesk& context_;
  GitDesk& git_;
  HookDesk& hooks_;
  const EnginePorts& ports_;
};

}  // namespace vantrell
