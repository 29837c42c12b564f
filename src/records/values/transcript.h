// The entries of one conversation, oldest first, found by id in constant time: a stream looks its
// entry up for every chunk, in a transcript that is never trimmed. One that comes from a store is
// read later: the application reads it off the main queue, the last entries first; a look at what
// is not in memory yet reads all of it and blocks.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "records/values/conversation_records.h"

namespace vantrell {

class Transcript {
 public:
  /// Where the entries of a stored transcript are read from.
  class Source {
   public:
    virtual ~Source() = default;
    /// The entries [first, last). Blocks; the queue that owns the transcript.
    virtual std::vector<ChatEntry> read(std::size_t first, std::size_t last) = 0;
    struct Part {
      std::vector<ChatEntry> entries;
      std::size_t lost = 0;  // that have placeholders
    };
    /// The same on one other thread, untold.
    virtual Part readInBackground(std::size_t first, std::size_t last) = 0;
    /// Tells the user that entries could not be read. The queue that owns the transcript.
    virtual void reportLost(std::size_t lost) = 0;
  };

  Transcript() = default;
  Transcript(std::initializer_list<ChatEntry> entries) : entries_(entries) {}
  explicit Transcript(std::vector<ChatEntry> entries) : entries_(std::move(entries)) {}
  /// One that is stored, with this many entries.
  Transcript(std::size_t count, std::shared_ptr<Source> source);
  /// Reads what is copied.
  Transcript(const Transcript& other);
  Transcript& operator=(const Transcript& other);
  Transcript(Transcript&&) noexcept = default;
  Transcript& operator=(Transcript&&) noexcept = default;
  ~Transcript() = default;

  std::size_t size() const { return unread() + entries_.size(); }
  bool empty() const { return size() == 0; }
  /// Whether all of it is in memory; else the entries from unread() on are.
  bool isRead() const { return !source_; }
  std::size_t unread() const { return source_ ? unreadCount_ : 0; }

  const ChatEntry& operator[](std::size_t index) const;
  /// For changing an entry in place. Its id must stay as it is.
  ChatEntry& operator[](std::size_t index);
  const ChatEntry& back() const { return (*this)[size() - 1]; }
  auto begin() const { return all().begin(); }
  auto end() const { return all().end(); }

  /// Place of the entry with this id (the first in memory, should a stored document hold two).
  std::optional<std::size_t> indexOf(std::string_view id) const;
  const ChatEntry* find(std::string_view id) const;
  /// For changing it in place.
  ChatEntry* find(std::string_view id);

  const ChatEntry& append(ChatEntry entry);
  /// Keeps the first `count` entries.
  void truncate(std::size_t count);
  void clear() { truncate(0); }

  bool operator==(const Transcript& other) const { return all() == other.all(); }

  // Reading it in the background. What is given must be what `source` has, and is ignored where it
  // is in memory already.

  std::shared_ptr<Source> source() const { return source_; }
  /// The entries that end where those in memory begin.
  void prepend(std::vector<ChatEntry> entries);
  /// All that is not in memory, indexed; what is in memory is added to it.
  void complete(Transcript earlier);
  /// Makes the index, which is otherwise made at the first look-up.
  void makeIndex() const { rebuildIndex(); }

 private:
  const std::vector<ChatEntry>& all() const {
    if (source_) readNow();
    return entries_;
  }
  void readNow() const;
  std::optional<std::size_t> indexInMemory(std::string_view id) const;
  void addToIndex(std::size_t position) const;
  void rebuildIndex() const;
  void dropIndex() const;

  mutable std::vector<ChatEntry> entries_;
  mutable std::shared_ptr<Source> source_;  // until all is read
  mutable std::size_t unreadCount_ = 0;     // entries before those in entries_
  // Open addressing over places in entries_ (place + 1, 0 is free), at most half full, hashed by
  // the entry's id. Made at the first look-up, then kept by append().
  mutable std::vector<std::uint32_t> slots_;
  mutable std::size_t indexed_ = 0;  // how many entries are in the index
};

}  // namespace vantrell
