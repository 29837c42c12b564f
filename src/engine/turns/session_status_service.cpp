#include "engine/turns/session_status_service.h"

namespace vantrell {

namespace {
constexpr std::string_view statusTitle = "Session status";
}

SessionStatusService::SessionStatusService(MainQueue& main, WorkspaceTree& tree,
                                           ExecutionTable& executions, Changes& changes)
    : main_(main), tree_(tree), executions_(executions), changes_(changes) {}

SessionStatusReport SessionStatusService::report(const ThreadExecutionKey& key) {
  using Kind = ConnectionState::Kind;
  SessionStatusReport report;
  const ChatThread* thread = tree_.thread(key);
  if (!thread) return report;
  const ThreadExecutionRuntime* execution = executions_.find(key);
  const ConnectionState state = execution ? execution->connectionState : ConnectionState::idle();
  const RunRecord* const run = thread->latestRun();

  std::optional<AgentProvider> provider = execution ? execution->activeProvider : std::nullopt;
  if (!provider && run) provider = run->provider;
  if (!provider) provider = thread->lastProvider;
  if (provider) report.providerLabel = shortLabel(*provider);
  report.queuedPromptCount = thread->queuedPrompts.size();
  if (run) {
    report.startedAt = run->startedAt;
    report.lastActivityAt = run->lastActivityAt;
  }
  if (state.isBusy() && !report.lastActivityAt) report.lastActivityAt = execution->lastActivityAt;

  if (execution && execution->permissionRequest()) {
    report.phase = SessionStatusPhase::waitingApproval;
    report.detail = execution->permissionRequest()->title;
    return report;
  }
  switch (state.kind) {
    case Kind::idle:
    case Kind::ready:
      report.takeOutcome(run, execution ? execution->errorMessage : std::nullopt);
      break;
    case Kind::connecting: report.phase = SessionStatusPhase::connecting; break;
    case Kind::working: report.phase = SessionStatusPhase::working; break;
    case Kind::failed:
      report.phase = SessionStatusPhase::failed;
      report.detail = execution->errorMessage.value_or(state.text);
      break;
  }
  return report;
}

void SessionStatusService::respondToSessionStatus(std::string text, const ThreadExecutionKey& key) {
  if (!tree_.thread(key)) return;
  std::string answer = report(key).message(main_.now());
  tree_.updateThread(key, [&](ChatThread& thread) {
    thread.nameAfterPrompt(statusTitle);
    thread.updatedAt = main_.now();
  });
  append(ChatEntryKind::user, std::move(text), key);
  append(ChatEntryKind::assistant, std::move(answer), key);
  changes_.mark(topics::remoteSnapshot);
}

void SessionStatusService::append(ChatEntryKind kind, std::string text,
                                  const ThreadExecutionKey& key) {
  ChatEntry entry;
  entry.id = Uuid::random().text();
  entry.kind = kind;
  entry.text = std::move(text);
  entry.createdAt = main_.now();
  tree_.appendEntry(std::move(entry), key);
}

}  // namespace vantrell
