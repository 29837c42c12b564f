// The operations on the conversation that the user looks at, under the names that an interface
// binds to: each looks the conversation up, calls the operation with its key, and shows why where
// it is refused. No rules. Main queue.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/core/connection_state.h"
#include "engine/core/plan_entry.h"
#include "engine/core/refusal.h"
#include "records/stores/review_annotation.h"
#include "records/values/chat_thread.h"
#include "records/values/routing.h"
#include "records/values/task_modes.h"
#include "runtimes/wire/agent_client.h"
#include "runtimes/wire/provider_options.h"

namespace vantrell {

struct AppParts;
struct ThreadExecutionRuntime;

/// Who asked the question that is shown.
enum class PermissionOwner { build, imagine };

class SelectedTask {
 public:
  explicit SelectedTask(AppParts& parts) : parts_(parts) {}

  std::optional<ThreadExecutionKey> key() const;

  // What the interface shows of it.

  ConnectionState connectionState() const;
  std::optional<AgentProvider> activeProvider() const;
  std::shared_ptr<const std::vector<PlanEntry>> plan() const;
  /// The conversation's own question, else the one of the media generator; null when none is open.
  std::shared_ptr<const PermissionRequest> permissionRequest() const;
  PermissionOwner permissionOwner() const;
  /// Of the last operation or failure that the user was told of, else of the conversation.
  std::optional<std::string> errorMessage() const;
  /// The user has seen it.
  void dismissError();
  std::string_view cliLog() const;
  bool isReplaying() const;

  // The composer.

  /// A workspace is selected and its conversation is not busy.
  bool canSend() const;
  /// A workspace is selected: while a turn runs a prompt is queued.
  bool canSubmitPrompt() const;
  void send(std::string_view text, std::vector<ChatAttachment> attachments);
  void sendNow(std::string text, std::vector<ChatAttachment> attachments);
  void stopWorking();
  void resetConnection();

  // Questions and modes.

  void respondToPermission(const std::string& optionID);
  void rejectPermission();
  bool canChangePermissionMode() const;
  void setPermissionMode(GrokPermissionMode mode);
  void setWorkflowMode(TaskWorkflowMode mode);

  // Queue, branches, comparison. Each of the latter selects what it makes.

  void runNextQueuedPrompt();
  void moveQueuedPromptToFront(const Uuid& id);
  void removeQueuedPrompt(const Uuid& id);
  void clearQueuedPrompts();
  void forkThread(const std::optional<std::string>& throughEntryID);
  void branchAndSend(std::string_view fromEntryID, std::string_view prompt,
                     std::optional<AgentProvider> provider = std::nullopt);
  void retry(std::optional<AgentProvider> provider = std::nullopt);
  void compareNextPrompt(std::string_view prompt, const std::vector<AgentProvider>& providers);

  // Providers.

  void handoff(AgentProvider to, ProviderHandoffScope scope);
  void setRoutingMode(ProviderRoutingMode mode);
  RoutingPreview routingPreview() const;
  AgentProvider sessionConfigurationProvider() const;
  std::vector<ProviderModelOption> sessionModelOptions() const;
  std::vector<ProviderEffortOption> sessionEffortOptions() const;
  std::string sessionModelLabel() const;
  std::string sessionEffortLabel() const;
  void setSessionModel(const std::string& id);
  void setSessionEffort(const std::string& id);
  void refreshSessionUsage();
  void resetSessionUsage();

  // Safety and projects.

  void createCheckpoint(std::string label);
  void restoreCheckpoint(const WorkspaceCheckpoint& checkpoint);
  void setTaskWorkspaceMode(TaskWorkspaceMode mode);
  void openProjectInTerminal();
  void addReviewAnnotation(std::string filePath, std::optional<std::int64_t> line,
                           std::string_view body, ReviewDecision decision);
  std::vector<ReviewAnnotation> selectedReviewAnnotations() const;

 private:
  const ThreadExecutionRuntime* execution() const;
  /// Shows why where it was refused; a success clears what was shown before.
  void show(const Result<>& result);
  void select(const Result<ThreadExecutionKey>& made);

  AppParts& parts_;
};

}  // namespace vantrell
