// Finds the task or the project that a word of a command line means. One way for every command.
// Pure functions, any thread.
#pragma once

#include <expected>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "records/values/chat_thread.h"
#include "shell/terminal/command.h"

namespace vantrell::shell {

/// An ID or its beginning as it is compared: upper case, without dashes. Nullopt for what cannot be
/// one.
std::optional<std::string> idPrefix(std::string_view word);
bool beginsWith(const Uuid& id, std::string_view prefix);

/// The one task whose ID begins with the text, however short; dashes and the case of letters do not
/// count. The error says what there is to choose from.
std::expected<ThreadExecutionKey, UsageError> findTask(const std::vector<Workspace>& workspaces,
                                                       std::string_view idOrPrefix);
/// Several at once; each is in the answer once.
std::expected<std::vector<ThreadExecutionKey>, UsageError> findTasks(
    const std::vector<Workspace>& workspaces, std::span<const std::string> idsOrPrefixes);

/// The project with this name (in any case of letters), this folder or this beginning of an ID, in
/// this order; what looks like a path is only a folder, relative to `base`. If two have the name,
/// the error lists them.
std::expected<Uuid, UsageError> findProject(const std::vector<Workspace>& workspaces,
                                            std::string_view named, std::string_view base);

/// The entry with this id or, where no other has it, this beginning of one: its place.
std::expected<std::size_t, UsageError> findEntry(const ChatThread& thread,
                                                 std::string_view idOrPrefix);

const Workspace& workspaceOf(const std::vector<Workspace>& workspaces, const Uuid& id);
const ChatThread& threadOf(const std::vector<Workspace>& workspaces, const ThreadExecutionKey& key);

}  // namespace vantrell::shell
