// How observers (views, the remote snapshot) learn of changes: a fine value for each, so that a
// window can update one row of a long transcript without reading the rest. For observing only: what
// must happen in an order is called, not announced. An observer only looks; what it wants to change
// it posts to the main queue, since the engine is in the middle of a step when it announces. Main
// queue.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "records/values/chat_thread.h"

namespace vantrell {

struct Change {
  enum class Kind {
    entryAdded,
    entryReplaced,
    textAdded,           // `text` at the end of the entry
    transcriptReplaced,  // read it again
    transcriptLoaded,    // more of it is in memory, unchanged
    planReplaced,
    runChanged,          // `runID`
    composerWanted,      // the user is about to type here: "vantrell.focusComposer"
    executionPublished,  // connection state, open question, error, log
    threadChanged,       // title, queue, choices
    workspacesChanged,   // threads or workspaces came, went or moved
    selectionChanged,    // with `entryID`: bring that one into view
    settingsChanged,
    modelOptionsChanged,    // what a provider offers
    projectContextChanged,  // what is known about the selected project
    gitSnapshotChanged,     // the Git picture of what is looked at
    reviewChanged,          // a note came
    usageChanged,           // what is known of an allowance
    runtimesChanged,        // what is installed, a log-in
    imagineChanged,         // the media library, its generator's state and progress
    saveFailed,             // `text` says why
    noticeRaised,           // `text` is for the user: what is stored could not be read
  };

  Kind kind;
  std::optional<ThreadExecutionKey> conversation = std::nullopt;
  // Valid during the call only.
  std::string_view entryID = {};
  std::string_view text = {};
  std::optional<Uuid> runID = std::nullopt;
};

class Changes {
 public:
  using Observer = std::function<void(const Change&)>;

  /// Observes until the returned object is destroyed.
  class Observation {
   public:
    Observation() = default;

   private:
    friend class Changes;
    explicit Observation(std::shared_ptr<Observer> observer) : observer_(std::move(observer)) {}
    std::shared_ptr<Observer> observer_;
  };

  [[nodiscard]] Observation observe(Observer observer);
  void announce(const Change& change);

 private:
  std::vector<std::weak_ptr<Observer>> observers_;
  int depth_ = 0;  // of announcements under way
};

}  // namespace vantrell
