// How lists and pages speak of tasks: short IDs, states, times. Pure functions, any thread.
#pragma once

#include <string>
#include <string_view>

#include "records/values/chat_thread.h"
#include "shell/terminal/text_table.h"

namespace vantrell {
class JsonWriter;
}  // namespace vantrell

namespace vantrell::shell {

/// As much of an ID as tells tasks apart: 8 characters.
std::string shortID(const Uuid& id);

/// A run's state in one or two words: "completed", "waits for you".
std::string_view wordFor(RunRecordStatus status);
/// The word with its colour; "new" for a task without a run.
TableCell stateOf(const ChatThread& thread);
TableCell stateCell(RunRecordStatus status);
/// The provider of the latest run, else the one that last opened a session; absent for a new task.
std::optional<AgentProvider> providerOf(const ChatThread& thread);

/// "just now", "5 min ago", "3 h ago", "4 days ago", beyond eight weeks the day: "2026-03-01"
/// (UTC).
std::string ago(Date then, Date now);
/// "45 s", "3 min 5 s", "2 h 10 min".
std::string duration(Seconds length);

/// `path` with the home folder as "~".
std::string withTilde(const std::string& path);

/// The members that say which task of which project an object is about.
void writeTaskMembers(JsonWriter& writer, const Workspace& workspace, const ChatThread& thread);
/// What tells about a task without its transcript, as one JSON object on a line.
std::string taskAsJson(const Workspace& workspace, const ChatThread& thread);

/// The title, or what stands for an empty one.
std::string titleOf(const ChatThread& thread);

}  // namespace vantrell::shell
