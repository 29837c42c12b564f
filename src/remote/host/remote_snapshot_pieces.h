// The snapshot as pieces of JSON, so that only what has changed is encoded again: one piece for
// each project, conversation and entry. Where the whole does not fit into one message, it decides
// what is left out: conversations that are neither selected nor at work go out with their newest
// entries, those that changed last keep the most; if that is not enough, long texts of the others
// are cut.
//
// It holds little more than what is sent, so older entries are asked for when there is room for
// them. Belongs to one queue that is not the main queue.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "records/values/chat_thread.h"
#include "remote/protocol/remote_snapshot.h"

namespace vantrell {

/// What has changed since the last update. All of it is owned.
struct RemoteSnapshotUpdate {
  struct Thread {
    ThreadExecutionKey key;
    RemoteThread head;                                       // without entries
    std::size_t count = 0;                                   // entries of the conversation
    bool reset = false;                                      // forget all of its entries
    std::vector<std::pair<std::size_t, ChatEntry>> entries;  // new or changed, by their places
  };
  struct Project {
    RemoteWorkspace head;  // without threads
    std::vector<ThreadExecutionKey> threads;
  };
  std::vector<Thread> threads;
  std::optional<std::vector<Project>> projects;  // all, where any changed
  RemoteSnapshot state;                          // without workspaces
  std::set<ThreadExecutionKey> prominent;        // selected or at work
};

/// An encoded snapshot; shares its pieces, so that a copy is cheap. Any thread.
struct RemoteSnapshotText {
  std::vector<std::shared_ptr<const std::string>> pieces;
  std::size_t size = 0;  // bytes
  std::size_t cutConversations = 0;
  std::size_t cutTexts = 0;

  std::string joined() const;
};

class RemoteSnapshotPieces {
 public:
  /// The most that a snapshot may measure, in bytes.
  explicit RemoteSnapshotPieces(std::size_t limit);

  void apply(RemoteSnapshotUpdate update);

  /// Entries that there is room for: up to `count`, which end where those that are known begin, and
  /// no more of them than measure about `bytes`.
  struct Wanted {
    ThreadExecutionKey key;
    std::size_t end = 0;
    std::size_t count = 0;
    std::size_t bytes = 0;
  };
  std::vector<Wanted> wanted() const;
  /// Answers one of wanted(), with entries that end at its `end`. Ignored when the conversation has
  /// changed meanwhile; an empty answer is not asked for again until it changes.
  void addOlder(const Wanted& wanted, std::vector<ChatEntry> entries);

  /// Encodes what is new, and forgets what there is no room for.
  RemoteSnapshotText assemble();

 private:
  using Text = std::shared_ptr<const std::string>;
  struct Entry {
    Text json;
    std::size_t textBegin = 0;  // of the text's own bytes in it
    std::size_t textEnd = 0;
  };
  struct Thread {
    Text begin, end;  // around the entries
    double updatedAt = 0;
    std::size_t first = 0;  // place of the first entry that is known
    std::deque<Entry> entries;
    std::size_t bytes = 0;    // of all entries, with a comma each
    std::size_t older = 0;    // bytes of the entry before them, where it was known once
    bool hasNoOlder = false;  // asked for in vain
    std::size_t usual() const;
    std::size_t estimate() const;
    void dropFirst();
  };
  struct Project {
    Text begin, end;  // around the conversations
    std::vector<ThreadExecutionKey> threads;
  };
  /// How many bytes of entries each conversation may have.
  struct Plan {
    std::map<ThreadExecutionKey, std::size_t> allowed;
    std::size_t forProminent = 0;  // bytes for all of them together
  };

  Plan plan() const;
  static Entry encoded(ChatEntry entry);
  static Entry cut(const Entry& entry, std::size_t longest);

  const std::size_t limit_;
  std::map<ThreadExecutionKey, Thread> threads_;
  std::vector<Project> projects_;
  std::set<ThreadExecutionKey> prominent_;
  Text stateBegin_, stateEnd_;  // around the projects
  std::size_t fixedBytes() const;
};

}  // namespace vantrell
