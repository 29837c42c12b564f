// The entries of one conversation, oldest first, found by id in constant time: a stream of chunks
// looks its entry up for every chunk, in a transcript that is never trimmed.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "records/conversation_records.h"

namespace vantrell {

class Transcript {
 public:
  Transcript() = default;
  Transcript(std::initializer_list<ChatEntry> entries) : entries_(entries) {}
  explicit Transcript(std::vector<ChatEntry> entries) : entries_(std::move(entries)) {}

  std::size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  const ChatEntry& operator[](std::size_t index) const { return entries_[index]; }
  /// For changing an entry in place. Its id must stay as it is.
  ChatEntry& operator[](std::size_t index) { return entries_[index]; }
  const ChatEntry& back() const { return entries_.back(); }
  auto begin() const { return entries_.begin(); }
  auto end() const { return entries_.end(); }

  /// Place of the entry with this id (the first, should a stored document hold two).
  std::optional<std::size_t> indexOf(std::string_view id) const;
  const ChatEntry* find(std::string_view id) const;
  ChatEntry* find(std::string_view id);

  ChatEntry& append(ChatEntry entry);
  /// Keeps the first `count` entries.
  void truncate(std::size_t count);
  void clear() { truncate(0); }

  bool operator==(const Transcript& other) const { return entries_ == other.entries_; }

 private:
  void addToIndex(std::size_t position) const;
  void rebuildIndex() const;

  std::vector<ChatEntry> entries_;
  // Open addressing over places in entries_ (place + 1, 0 is free), at most half full, hashed by
  // the entry's id. Made at the first look-up, then kept by append().
  mutable std::vector<std::uint32_t> slots_;
  mutable std::size_t indexed_ = 0;  // how many entries are in the index
};

}  // namespace vantrell
