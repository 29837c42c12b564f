#include "engine/turns/session_status.h"

#include <algorithm>
#include <fmt/format.h>
#include <vector>

#include "engine/turns/run_activity_timing.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {

using Phase = SessionStatusPhase;

constexpr std::size_t mostWords = 9;

constexpr std::string_view phrases[] = {"status",
                                        "current status",
                                        "session status",
                                        "task status",
                                        "run status",
                                        "what is the status",
                                        "what s the status",
                                        "what is the session status",
                                        "what s the session status",
                                        "what is the task status",
                                        "what s the task status"};

constexpr std::string_view subjects[] = {"session", "task", "run",    "agent", "model",
                                         "it",      "you",  "codex",  "grok",  "claude",
                                         "kimi",    "glm",  "tasklet"};

constexpr std::string_view otherWords[] = {
    "is", "are", "the", "this", "my", "still", "currently", "working", "running", "right", "now"};

template <std::size_t count>
bool isAmong(const std::string_view (&words)[count], std::string_view word) {
  return std::ranges::find(words, word) != std::end(words);
}

/// "is it still running", and no word that could make it mean something else.
bool asksWhetherAtWork(const std::vector<std::string>& words) {
  if (words.front() != "is" && words.front() != "are") return false;
  bool hasVerb = false, hasSubject = false;
  for (const auto& word : words) {
    const bool isSubject = isAmong(subjects, word);
    if (!isSubject && !isAmong(otherWords, word)) return false;
    hasSubject |= isSubject;
    hasVerb |= word == "working" || word == "running";
  }
  return hasVerb && hasSubject;
}

bool isUnderWay(Phase phase) {
  return phase == Phase::connecting || phase == Phase::working || phase == Phase::waitingApproval;
}

std::string headline(Phase phase, std::string_view label, std::optional<Seconds> quiet) {
  switch (phase) {
    case Phase::idle: return "No task is currently running in this session.";
    case Phase::connecting: return fmt::format("The session is starting {}.", label);
    case Phase::working:
      if (!quiet || *quiet < quietAfter) return fmt::format("Yes—{} is still working.", label);
      if (*quiet < stalledAfter) {
        return fmt::format("Yes—{} is still marked as working, but activity is currently quiet.",
                           label);
      }
      return fmt::format(
          "{} is still marked as running, but it has not produced new activity recently and may "
          "need attention.",
          label);
    case Phase::waitingApproval:
      return fmt::format("{} is paused and waiting for your approval.", label);
    case Phase::completed:
      return "No task is currently running. The last task completed successfully.";
    case Phase::interrupted:
      return "No task is currently running. The previous task was interrupted when vantrell "
             "restarted.";
    case Phase::failed: return "No—the session needs attention.";
  }
  return {};
}

std::string activityBullet(Seconds quiet, const std::string& elapsed) {
  if (quiet < quietAfter) return "- **Activity:** Active now";
  if (quiet < stalledAfter) return fmt::format("- **Activity:** Quiet for {}", elapsed);
  return fmt::format("- **Activity:** No new activity for {}", elapsed);
}

}  // namespace

std::string SessionStatusReport::message(Date now) const {
  const auto quiet = lastActivityAt ? std::optional(now - *lastActivityAt) : std::nullopt;
  std::vector<std::string> bullets;
  if (isUnderWay(phase) && startedAt) {
    bullets.push_back(
        fmt::format("- **Running:** {}", RunActivityTiming::elapsedLabel(*startedAt, now)));
  }
  if (phase == Phase::working && quiet) {
    bullets.push_back(
        activityBullet(*quiet, RunActivityTiming::elapsedLabel(*lastActivityAt, now)));
  }
  if (detail && !detail->empty()) bullets.push_back(fmt::format("- **Attention:** {}", *detail));
  if (queuedPromptCount > 0) {
    bullets.push_back(fmt::format("- **Queue:** {} prompt{} waiting", queuedPromptCount,
                                  queuedPromptCount == 1 ? "" : "s"));
  }
  std::vector<std::string> parts = {headline(phase, providerLabel.value_or("The agent"), quiet)};
  if (!bullets.empty()) parts.push_back(text::joined(bullets, "\n"));
  parts.emplace_back(
      "This status came directly from vantrell and did not wait for or interrupt the agent.");
  return text::joined(parts, "\n\n");
}

void SessionStatusReport::takeOutcome(const RunRecord* run,
                                      const std::optional<std::string>& otherwise) {
  phase = Phase::idle;
  if (!run) return;
  switch (run->status) {
    case RunRecordStatus::completed: phase = Phase::completed; break;
    case RunRecordStatus::interrupted: phase = Phase::interrupted; break;
    case RunRecordStatus::failed:
      phase = Phase::failed;
      detail = run->statusMessage ? run->statusMessage : otherwise;
      break;
    case RunRecordStatus::starting:
    case RunRecordStatus::running:
    case RunRecordStatus::waitingApproval:
    case RunRecordStatus::cancelled: break;
  }
}

SessionStatusReport SessionStatusReport::ofRecord(const ChatThread& thread) {
  SessionStatusReport report;
  report.queuedPromptCount = thread.queuedPrompts.size();
  const RunRecord* run = thread.latestRun();
  const auto provider = run && run->provider ? run->provider : thread.lastProvider;
  if (provider) report.providerLabel = shortLabel(*provider);
  if (!run) return report;
  report.startedAt = run->startedAt;
  report.lastActivityAt = run->lastActivityAt;
  switch (run->status) {
    case RunRecordStatus::starting: report.phase = Phase::connecting; break;
    case RunRecordStatus::running: report.phase = Phase::working; break;
    case RunRecordStatus::waitingApproval:
      report.phase = Phase::waitingApproval;
      report.detail = run->statusMessage;
      break;
    default: report.takeOutcome(run, std::nullopt);
  }
  return report;
}

bool SessionStatusQuery::matches(std::string_view text) {
  // Lower-casing makes no letter of what is none, so that the words can be counted first: a prompt
  // may be long.
  const auto found = text::words(text, mostWords + 1);
  if (found.empty() || found.size() > mostWords) return false;
  std::vector<std::string> words;
  for (const auto word : found) words.push_back(text::lowercased(word));
  return isAmong(phrases, text::joined(words, " ")) || asksWhetherAtWork(words);
}

}  // namespace vantrell
