// A transcript as it is read: entries, and groups of tool entries. Plain values.
#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "records/values/conversation_records.h"

namespace vantrell {

/// Two or more neighbouring tool entries of the same sort, in the order of the transcript.
struct ToolEntryGroup {
  std::string key;  // of ToolGrouping::key
  std::vector<ChatEntry> entries;

  /// "failed", "completed" or "in_progress".
  std::string_view status() const;
  /// The group's place in a list: it stays while entries are added at its end.
  std::string_view id() const { return entries.empty() ? std::string_view() : entries.front().id; }

  bool operator==(const ToolEntryGroup&) const = default;
};

using TranscriptItem = std::variant<ChatEntry, ToolEntryGroup>;

}  // namespace vantrell
