// The entries of one conversation, oldest first, found by id in constant time: a stream of chunks
// looks its entry up for every chunk, in a transcript that is never trimmed. One that comes from a
// store is read at the first look into it: a start with a hundred megabytes of conversations reads
// none of them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "records/values/conversation_records.h"
#include "records/values/transcript_journal.h"

namespace vantrell {

class Transcript {
 public:
  /// Reads the entries from where they are kept. It gives as many as it promised.
  using Loader = std::function<std::vector<ChatEntry>()>;

  Transcript() = default;
  Transcript(std::initializer_list<ChatEntry> entries) : entries_(entries) {}
  explicit Transcript(std::vector<ChatEntry> entries) : entries_(std::move(entries)) {}
  /// One that is stored, with this many entries.
  Transcript(std::size_t count, Loader load);
  /// Reads what is copied, and has no part in what is known of the store.
  Transcript(const Transcript& other);
  Transcript& operator=(const Transcript& other);
  Transcript(Transcript&&) noexcept = default;
  Transcript& operator=(Transcript&&) noexcept = default;
  ~Transcript() = default;

  // Without reading it.
  std::size_t size() const { return unread_ ? unread_->count : entries_.size(); }
  bool empty() const { return size() == 0; }
  bool isRead() const { return !unread_; }

  const ChatEntry& operator[](std::size_t index) const { return entries()[index]; }
  /// For changing an entry in place. Its id must stay as it is.
  ChatEntry& operator[](std::size_t index);
  const ChatEntry& back() const { return entries().back(); }
  auto begin() const { return entries().begin(); }
  auto end() const { return entries().end(); }

  /// Place of the entry with this id (the first, should a stored document hold two).
  std::optional<std::size_t> indexOf(std::string_view id) const;
  const ChatEntry* find(std::string_view id) const;
  /// For changing it in place.
  ChatEntry* find(std::string_view id);

  const ChatEntry& append(ChatEntry entry);
  /// Keeps the first `count` entries.
  void truncate(std::size_t count);
  void clear() { truncate(0); }

  bool operator==(const Transcript& other) const { return entries() == other.entries(); }

  /// For the store, which asks for the changes whenever it collects them.
  std::uint64_t lineage() const { return journal_.lineage(); }
  TranscriptJournal::Changes takeChanges() const { return journal_.take(size()); }

 private:
  struct Unread {
    std::size_t count;
    Loader load;
  };

  const std::vector<ChatEntry>& entries() const {
    if (unread_) readNow();
    return entries_;
  }
  void readNow() const;
  void addToIndex(std::size_t position) const;
  void rebuildIndex() const;

  mutable std::vector<ChatEntry> entries_;
  mutable std::unique_ptr<Unread> unread_;  // until the first look
  mutable TranscriptJournal journal_;
  // Open addressing over places in entries_ (place + 1, 0 is free), at most half full, hashed by
  // the entry's id. Made at the first look-up, then kept by append().
  mutable std::vector<std::uint32_t> slots_;
  mutable std::size_t indexed_ = 0;  // how many entries are in the index
};

}  // namespace vantrell
