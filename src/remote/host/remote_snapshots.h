// Sends the host's state to its clients: 80 ms after it has last changed, at least once a second
// while it goes on changing, and at once where that is asked for. What it costs follows what has
// changed. The main queue only copies that, in small steps; JSON is made on a queue of its own. Of
// transcripts that are still on the disk it reads what there is room for in a snapshot, on the
// thread that owns the store, and leaves the rest there. Main queue.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "engine/core/changes.h"
#include "platform/queues/dispatch.h"
#include "records/values/project_context.h"
#include "remote/host/remote_snapshot_pieces.h"
#include "remote/host/remote_snapshot_state.h"
#include "remote/protocol/remote_crypto.h"

namespace vantrell {

class RemoteSnapshots : public std::enable_shared_from_this<RemoteSnapshots> {
 public:
  static constexpr std::chrono::milliseconds quietTime{80};
  static constexpr std::chrono::seconds longestWait{1};
  /// Bytes of the JSON: the rest of the message is its type and ids.
  static constexpr std::size_t limit = RemoteCrypto::longestPlaintext - 4096;

  struct Dependencies {
    RemoteSnapshotSources sources;
    Changes& changes;
    BackgroundPool& pool;
    /// The thread that writes the store, where stored transcripts may be read; null: on the main
    /// queue.
    Executor* reader = nullptr;
    std::function<void(RemoteSnapshotText)> send;      // main queue
    std::function<void(const std::string&)> log = {};  // a sentence; may be empty
    std::size_t mostBytes = limit;
  };
  explicit RemoteSnapshots(Dependencies dependencies);

  /// Observes the state from now on, and sends it.
  void start();
  void stop();
  bool isStarted() const { return isStarted_; }
  /// Sends the state without waiting for changes to end. Nothing while stopped.
  void sendNow();

 private:
  struct Dirty {
    bool reset = false;
    std::vector<std::string> entries;  // ids
  };
  struct Fetch;

  void changed(const ChangeBatch& batch);
  void begin();
  void collect(int cycle);
  bool collectContexts();
  bool collectThreads();
  void findNewThreads();
  RemoteSnapshotUpdate::Thread copyOf(const ThreadExecutionKey& key, const Dirty& dirty) const;
  void encode();
  void fetch(std::vector<RemoteSnapshotPieces::Wanted> wanted);
  void fetchSome(const std::shared_ptr<Fetch>& fetch);
  void encodeFetched(const std::shared_ptr<Fetch>& fetch);
  void finish(RemoteSnapshotText text);

  const Dependencies core_;
  const SerialQueue encoder_;
  bool isStarted_ = false;
  Changes::Observation observation_;
  Timer timer_;
  std::optional<Duration> changingSince_;  // uptime of the first change that was not sent

  // What changed since the last cycle began.
  std::map<ThreadExecutionKey, Dirty> dirty_;
  bool projectsDirty_ = true;
  bool contextsDirty_ = true;

  // The cycle that is under way; a later one cancels what an earlier one posts.
  int cycle_ = 0;
  bool isAtWork_ = false;
  bool isWantedAgain_ = false;
  int fetches_ = 0;
  bool sendsProjects_ = false;
  RemoteSnapshotUpdate update_;
  std::map<ThreadExecutionKey, Dirty> collecting_;
  std::set<ThreadExecutionKey> known_;
  std::map<Uuid, ProjectContextProfile> contexts_;
  std::shared_ptr<RemoteSnapshotPieces> pieces_;  // belongs to the encoder's queue
  bool wasCut_ = false;
};

}  // namespace vantrell
