// What the user has typed for the tasks of remote hosts and not sent: kept by host and task, and in
// an owner-only file. Main queue; the file is written on a queue of its own, the newest state of
// it. A draft that cannot be written stays in memory.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "platform/queues/dispatch.h"

namespace vantrell {

struct MacRemoteComposerDraft {
  std::string text;
  Date updatedAt;
};

class MacRemoteComposerDraftStore {
 public:
  using Drafts = std::map<std::string, MacRemoteComposerDraft, std::less<>>;

  /// Reads the file. One that cannot be understood is quarantined, and there are no drafts.
  MacRemoteComposerDraftStore(const std::string& supportFolder, MainQueue& main,
                              BackgroundPool& pool);

  /// Empty where there is none.
  std::string text(std::string_view key) const;
  /// Keeps the first `longestText` characters; an empty text removes the draft.
  void set(const std::string& key, std::string_view text);
  /// Removes the drafts whose key begins with the prefix and for which `isKept` answers false.
  void prune(std::string_view prefix, const std::function<bool(const std::string& key)>& isKept);
  const Drafts& drafts() const { return drafts_; }

  static constexpr std::size_t longestText = 250'000;  // characters
  static constexpr std::size_t mostStored = 200;       // the newest

 private:
  void save();

  MainQueue& main_;
  const std::string path_;
  const SerialQueue queue_;
  /// The number of the newest state, for the queue.
  const std::shared_ptr<std::atomic<unsigned>> newest_ = std::make_shared<std::atomic<unsigned>>();
  Drafts drafts_;
};

}  // namespace vantrell
