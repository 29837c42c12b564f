// A transcript as it is read: messages, with tool calls side by side folded into groups, and the
// day wherever it changes. Answers stay Markdown, for whoever draws them; all other text is fit to
// be shown. Pure functions, any thread.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine/core/plan_entry.h"
#include "records/values/conversation_records.h"

namespace vantrell::views {

/// How far a tool call or a step of the plan is.
enum class Progress { pending, working, completed, failed };
Progress progressOf(std::string_view status);
/// ○ ▸ ✓ ✗
std::string_view sign(Progress progress);

struct ToolRow {
  std::string id;
  std::string title;    // on one line
  std::string summary;  // one line of its input: the command, the path, what is searched
  Progress progress = Progress::pending;
  std::string status;  // as the agent reported it

  bool operator==(const ToolRow&) const = default;
};
ToolRow toolRow(const ChatEntry& entry);

struct AttachmentRow {
  std::string name, path;
  ChatAttachmentKind kind = ChatAttachmentKind::file;

  bool operator==(const AttachmentRow&) const = default;
};

struct TranscriptRow {
  enum class Kind { day, user, assistant, thought, tool, toolGroup, hook, system };

  Kind kind = Kind::system;
  std::string id;     // of the entry; of a group, its first entry's; of a day "day" and its number
  std::string title;  // of a day, tool, group, hook or system entry; may be empty
  std::string text;   // what was said, or what a hook has printed
  std::vector<ToolRow> tools;               // of a tool one, of a group two or more
  Progress progress = Progress::completed;  // of a tool, group or hook
  std::optional<AgentProvider> provider;
  std::vector<AttachmentRow> attachments;
  Date createdAt;

  bool operator==(const TranscriptRow&) const = default;
};

/// The rows of these entries, which follow `before` (null at the beginning): a part of a long
/// transcript is read by itself. `now` decides which day is "Today".
std::vector<TranscriptRow> transcriptRows(std::span<const ChatEntry> entries,
                                          const ChatEntry* before, Date now);
/// "Today", "Yesterday", or the date, in the user's time zone.
std::string dayLabel(Date day, Date now);

/// A text that may be long, in lines: the first `most`, and how many there are in all.
struct BoundedText {
  std::vector<std::string> lines;
  std::size_t total = 0;

  bool isWhole() const { return lines.size() == total; }
};
BoundedText bounded(std::string_view text, std::size_t most);

struct PlanRow {
  std::string words;
  Progress progress = Progress::pending;

  bool operator==(const PlanRow&) const = default;
};
PlanRow planRow(const PlanEntry& entry);

}  // namespace vantrell::views
