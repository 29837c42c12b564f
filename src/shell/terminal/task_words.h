// What lists and pages of the terminal add to the rows of tasks: colours and JSON. Pure functions,
// any thread.
#pragma once

#include <string>

#include "platform/values/json.h"
#include "platform/values/json_objects.h"
#include "shell/terminal/text_table.h"
#include "views/run_rows.h"

namespace vantrell::shell {

using views::ago;
using views::providerOf;
using views::shortID;
using views::withTilde;

/// The state with its colour.
TableCell stateCell(views::TaskState state);
/// The ID of a task, project or item as lists show it.
TableCell idCell(const Uuid& id);

/// The members that say which task of which project an object is about.
JsonObject taskMembers(const Workspace& workspace, const ChatThread& thread);
/// What tells about a task without its transcript.
JsonObject taskAsJson(const Workspace& workspace, const ChatThread& thread);
using json::setIfKnown;
/// The object without the members that are null.
JsonObject withoutNulls(const JsonObject& all);
/// Of an optional or a pointer.
template <typename Value>
Json orNull(const Value& value) {
  return value ? Json(*value) : Json();
}

/// The title, or "(untitled)".
inline std::string titleOf(const ChatThread& thread) {
  return views::shownTitle(thread.title);
}
/// "1 task", "3 tasks".
std::string counted(std::size_t count, std::string_view one);

}  // namespace vantrell::shell
