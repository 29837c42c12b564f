// What lists and pages of the terminal add to the rows of tasks: colours and JSON. Pure functions,
// any thread.
#pragma once

#include <string>

#include "platform/values/json.h"
#include "shell/terminal/text_table.h"
#include "views/run_rows.h"

namespace vantrell::shell {

using views::ago;
using views::providerOf;
using views::shortID;
using views::withTilde;

/// The state with its colour.
TableCell stateCell(views::TaskState state);

/// The members that say which task of which project an object is about.
JsonObject taskMembers(const Workspace& workspace, const ChatThread& thread);
/// What tells about a task without its transcript, as one JSON object on a line.
std::string taskAsJson(const Workspace& workspace, const ChatThread& thread);

/// The title, or what stands for an empty one.
inline std::string titleOf(const ChatThread& thread) {
  return views::shownTitle(thread.title);
}

}  // namespace vantrell::shell
