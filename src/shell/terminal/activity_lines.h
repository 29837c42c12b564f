// What an agent does and plans to do, as lines of a terminal. Used by the printer of transcripts;
// main queue.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "engine/core/plan_entry.h"
#include "records/values/chat_thread.h"
#include "shell/terminal/terminal_style.h"

namespace vantrell::shell {

/// Of a tool call or a step of the plan: whether it will not change again.
bool hasEnded(std::string_view status);

/// A tool call on one line of at most so many columns.
std::string toolLine(const ChatEntry& entry, std::string_view title, const TerminalStyle& style,
                     int columns);

/// A step of the plan, likewise.
std::string planLine(const PlanEntry& entry, const TerminalStyle& style, int columns);

/// The latest title that names each tool call: some agents give it once and leave it out later.
class ToolTitles {
 public:
  std::string best(const ChatEntry& entry);

 private:
  std::map<std::string, std::string, std::less<>> titles_;  // by entry
};

}  // namespace vantrell::shell
