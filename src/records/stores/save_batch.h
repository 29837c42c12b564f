// What one save writes: rows, already encoded, under their final keys. Writing it again, or after
// another one that failed, gives the same result, so that a batch whose write failed is simply
// added to. A plain value; the main queue makes it, the writer takes it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace vantrell {

/// Of a run or an entry: its thread's number and its place in it, so that the rows of a thread lie
/// side by side in the file.
constexpr std::int64_t rowKey(std::int64_t thread, std::size_t place) {
  return thread << 32 | static_cast<std::int64_t>(place);
}

struct SaveBatch {
  struct WorkspaceRow {
    std::int64_t place = 0;
    std::string head;
  };
  /// What changes often lies apart from the head, which may be large.
  struct ThreadRow {
    std::int64_t workspace = 0;
    std::int64_t place = 0;
    std::int64_t entries = 0;  // how many
    double updatedAt = 0;      // seconds since the reference date

    bool operator==(const ThreadRow&) const = default;
  };
  using Rows = std::map<std::int64_t, std::string>;
  using Lengths = std::map<std::int64_t, std::size_t>;

  // Absent values stand for rows that go, a thread's with all that belongs to it. Numbers of rows
  // that went are never used again.
  std::map<std::int64_t, std::optional<WorkspaceRow>> workspaces;
  std::map<std::int64_t, std::optional<ThreadRow>> threads;
  Rows heads;  // by thread
  Rows runs;   // by rowKey()
  Rows entries;
  // By thread: rows from this place on go, before the new ones are written.
  Lengths runLengths;
  Lengths entryLengths;
  std::map<std::string, std::string> notes;

  bool empty() const;
  std::size_t rowCount() const;
  /// Adds a later batch: what it says counts.
  void add(SaveBatch later);
};

}  // namespace vantrell
