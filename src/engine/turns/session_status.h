// How a task stands, in words that claim no more than the program can know: after a long silence it
// is said to be marked as working, not to be working. Plain values and pure functions, any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/values/date.h"
#include "records/values/chat_thread.h"

namespace vantrell {

/// From this much silence on a working task is called quiet.
inline constexpr Seconds quietAfter{120.0};
/// From this much on it may need attention, and the monitor warns.
inline constexpr Seconds stalledAfter{600.0};

enum class SessionStatusPhase {
  idle,
  connecting,
  working,
  waitingApproval,
  completed,
  interrupted,
  failed
};
constexpr auto rawTexts(SessionStatusPhase) {
  return std::to_array<std::string_view>(
      {"idle", "connecting", "working", "waitingApproval", "completed", "interrupted", "failed"});
}

struct SessionStatusReport {
  SessionStatusPhase phase = SessionStatusPhase::idle;
  std::optional<std::string> providerLabel;  // the short one of the provider concerned
  std::optional<Date> startedAt;             // of the latest run
  std::optional<Date> lastActivityAt;        // the last sign of life
  std::size_t queuedPromptCount = 0;         // that wait in the conversation
  std::optional<std::string> detail;         // the reason that is shown under "Attention"

  /// What is said to the user, as Markdown.
  std::string message(Date now) const;

  /// As far as the record tells, for a process that does not run the task itself. The last activity
  /// may be 15 seconds behind.
  static SessionStatusReport ofRecord(const ChatThread& thread);

  /// Takes the phase that the end of the latest run leaves behind; none and one that has not ended
  /// leave `idle`. The detail of a failed one is its own text, else `otherwise`.
  void takeOutcome(const RunRecord* run, const std::optional<std::string>& otherwise);

  bool operator==(const SessionStatusReport&) const = default;
};

struct SessionStatusQuery {
  /// Whether the text asks how the session stands, in one of the ways that cannot mean the project
  /// ("status", "is codex still running?"). Up to nine words, whatever stands between them.
  static bool matches(std::string_view text);
};

}  // namespace vantrell
