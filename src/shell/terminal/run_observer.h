// What there is to see of one run. Called by ConversationJob; the printers implement it. Main
// queue; must not call the engine.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "engine/core/plan_entry.h"
#include "records/values/chat_thread.h"

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

class RunObserver {
 public:
  virtual ~RunObserver() = default;

  virtual void introduced(const RunIntroduction& introduction) = 0;
  virtual void entryAdded(const ChatEntry& entry) = 0;
  virtual void entryReplaced(const ChatEntry& entry) = 0;
  virtual void textAdded(const ChatEntry&, std::string_view) {}
  /// A stored session was played back: these entries stand now.
  virtual void transcriptReplaced(const Transcript&) {}
  virtual void planReplaced(const std::vector<PlanEntry>&) {}
  virtual void runChanged(const RunRecord& run) = 0;
  /// The agent has been silent for long, or is heard again: the run's message says so, once.
  virtual void livenessChanged(const RunRecord&) {}
  /// The user has typed a prompt, which waits; so many do now.
  virtual void promptQueued(std::size_t) {}
  /// Something else is written next, as the agent's question: ends what is under way.
  virtual void makeRoom() {}
  /// Nothing comes after this. No record when no run was begun.
  virtual void ended(const RunRecord*) {}
};

}  // namespace vantrell::shell
