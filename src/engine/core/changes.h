// What has changed, for those that show it: collected by topic and by conversation, and announced
// once a turn of the main queue. An observer then reads what it shows from the state itself. For
// observing only: what must happen in an order is called, not announced. Main queue.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "records/values/chat_thread.h"

namespace vantrell {

class MainQueue;

/// Something that changes as a whole. Compared by address, so that a feature has topics of its own
/// without anything here being changed.
struct ChangeTopic {
  const char* name;
};

namespace topics {
inline constexpr ChangeTopic workspaces{"workspaces"};  // threads or workspaces came, went or moved
inline constexpr ChangeTopic selection{"selection"};    // workspace, conversation, entry or section
inline constexpr ChangeTopic settings{"settings"};
inline constexpr ChangeTopic error{"error"};                    // the message for the user
inline constexpr ChangeTopic modelOptions{"modelOptions"};      // what a provider offers
inline constexpr ChangeTopic projectContext{"projectContext"};  // of the selected project
inline constexpr ChangeTopic gitSnapshot{"gitSnapshot"};        // of the selected conversation
inline constexpr ChangeTopic reviews{"reviews"};
inline constexpr ChangeTopic usage{"usage"};        // what is known of an allowance
inline constexpr ChangeTopic runtimes{"runtimes"};  // what is installed, a log-in
inline constexpr ChangeTopic imagine{"imagine"};    // the media library, its generator
inline constexpr ChangeTopic safety{"safety"};      // a checkpoint by hand, a restore, an isolation
/// Other clients are to see the state now, not at their next refresh.
inline constexpr ChangeTopic remoteSnapshot{"remoteSnapshot"};
}  // namespace topics

/// What has changed in one conversation since the last announcement.
struct ConversationChanges {
  bool transcriptReset = false;              // read all of it; the two lists are empty then
  std::vector<std::string> appendedEntries;  // ids, in the order of the transcript
  std::vector<std::string> changedEntries;   // ids, each once; none of those that were appended
  bool transcriptLoaded = false;             // more of it is in memory, unchanged
  bool runs = false;                         // a run began or changed
  bool state = false;           // connection state, question, plan, error, log, playback
  bool thread = false;          // title, queue, draft, choices, checkpoints
  bool composerWanted = false;  // the user is about to type here
};

/// One announcement.
struct ChangeBatch {
  std::set<const ChangeTopic*> topics;
  std::map<ThreadExecutionKey, ConversationChanges> conversations;
  std::vector<std::string> saveFailures;  // why something could not be stored
  std::vector<std::string> notices;       // sentences for the user about what is stored

  bool has(const ChangeTopic& topic) const { return topics.contains(&topic); }
  /// Null where nothing has changed there.
  const ConversationChanges* of(const ThreadExecutionKey& key) const;
};

class Changes {
 public:
  using Observer = std::function<void(const ChangeBatch&)>;

  /// The queue must outlive it.
  explicit Changes(MainQueue& main);

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

  // Marks. Marking the same thing again costs next to nothing.

  void mark(const ChangeTopic& topic);
  void entryAppended(const ThreadExecutionKey& key, std::string_view entryID);
  void entryChanged(const ThreadExecutionKey& key, std::string_view entryID);
  void transcriptReset(const ThreadExecutionKey& key);
  void transcriptLoaded(const ThreadExecutionKey& key);
  void runChanged(const ThreadExecutionKey& key);
  void stateChanged(const ThreadExecutionKey& key);
  void threadChanged(const ThreadExecutionKey& key);
  void composerWanted(const ThreadExecutionKey& key);
  void saveFailed(std::string reason);
  void notice(std::string sentence);

  /// Announces now what is marked, in place of the end of the queue's turn: for one that is about
  /// to leave.
  void deliver();

 private:
  ConversationChanges& of(const ThreadExecutionKey& key);
  void schedule();

  MainQueue& main_;
  ChangeBatch pending_;
  bool isScheduled_ = false;
  std::vector<std::weak_ptr<Observer>> observers_;
  std::shared_ptr<void> life_ = std::make_shared<int>();  // a posted announcement ends with us
};

}  // namespace vantrell
