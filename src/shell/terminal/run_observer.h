// What there is to see of one run. Fed by ChangeFeed from the changes of the engine and by
// RunSession; the printers implement it. Main queue; must not call the engine.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "engine/core/plan_entry.h"
#include "records/values/chat_thread.h"
#include "runtimes/wire/agent_client.h"

namespace vantrell::shell {

/// What a run is about to be.
struct RunIntroduction {
  ThreadExecutionKey conversation;
  std::string_view runtime;  // for people
  std::string_view folder;
  std::size_t earlierEntries = 0;
  /// What the permission mode means, where the agent may act unasked; else empty.
  std::string_view permissionNotice{};
  std::string resumeCommand =
      "vantrell run --task";  // what is typed, up to the task's ID, to go on
};

/// Shows an agent's questions and what comes of them.
class QuestionObserver {
 public:
  virtual ~QuestionObserver() = default;

  virtual void permissionAsked(const PermissionRequest& request) = 0;
  /// The user ended a line at the terminal.
  virtual void lineTyped() = 0;
  /// The answer was not understood; the question stays open.
  virtual void permissionStillOpen(const PermissionRequest& request) = 0;
  /// The option chosen, or null for a refusal that the request has no option for.
  virtual void permissionAnswered(const PermissionOption* option) = 0;
};

class RunObserver : public QuestionObserver {
 public:
  virtual void introduced(const RunIntroduction& introduction) = 0;
  virtual void entryAdded(const ChatEntry& entry) = 0;
  virtual void entryReplaced(const ChatEntry& entry) = 0;
  virtual void textAdded(const ChatEntry& entry, std::string_view text) = 0;
  /// A stored session was played back: these entries stand now.
  virtual void transcriptReplaced(const Transcript& entries) = 0;
  virtual void planReplaced(const std::vector<PlanEntry>& plan) = 0;
  virtual void runChanged(const RunRecord& run) = 0;
  /// The agent has been silent for long, or is heard again: the run's message says so, once.
  virtual void livenessChanged(const RunRecord&) {}
  /// The user has typed a prompt, which waits; so many do now.
  virtual void promptQueued(std::size_t waiting) = 0;
  /// Somebody else writes to the terminal: a message, or a key that it shows.
  virtual void interrupted() = 0;
  /// Nothing comes after this. No record when no run was begun.
  virtual void ended(const RunRecord* run) = 0;
};

}  // namespace vantrell::shell
