// The read-only Git picture of a project: branch, changed files, diff, and the hunks that a diff is
// cut into. Plain values.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "platform/values/date.h"

namespace vantrell {

/// Its identity is its path.
struct GitChangedFile {
  std::string path;
  std::string status;  // two letters, index and working tree: "M ", "??", "R "
  /// Lines, of both the index and the working tree; absent where Git does not count them (a binary
  /// file, one that is not tracked).
  std::optional<std::int64_t> additions;
  std::optional<std::int64_t> deletions;

  bool operator==(const GitChangedFile&) const = default;
};

struct GitWorkspaceSnapshot {
  bool isRepository = false;
  std::string branch;                 // its name, else the short commit, else "detached"
  std::vector<GitChangedFile> files;  // by path
  std::string diff;                   // bounded; what is staged, then what is not
  std::optional<std::string> error;   // a sentence for the user
  Date refreshedAt = Date::distantPast();

  /// Sums over the files, where a missing count is 0.
  std::int64_t additions() const { return sum(&GitChangedFile::additions); }
  std::int64_t deletions() const { return sum(&GitChangedFile::deletions); }

  /// What is known of a folder that lies in no repository, or before anybody has looked.
  static GitWorkspaceSnapshot unavailable() { return {}; }

  bool operator==(const GitWorkspaceSnapshot&) const = default;

 private:
  std::int64_t sum(std::optional<std::int64_t> GitChangedFile::* count) const {
    std::int64_t total = 0;
    for (const auto& file : files) {
      if (__builtin_add_overflow(total, (file.*count).value_or(0), &total)) {
        return std::numeric_limits<std::int64_t>::max();
      }
    }
    return total;
  }
};

/// A piece of a diff with the lines around it; computed, never stored. Its identity is id().
struct DiffHunk {
  std::string filePath;
  std::string header;  // the line that begins "@@"
  std::string body;
  std::int64_t additions = 0;  // lines
  std::int64_t deletions = 0;

  std::string id() const { return filePath + "|" + header; }

  bool operator==(const DiffHunk&) const = default;
};

}  // namespace vantrell
