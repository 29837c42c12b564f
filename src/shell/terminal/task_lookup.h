// Finds what a word of a command line means: a task, a project, a provider, or an item of a list by
// its ID. One way for every command. Pure functions, any thread.
#pragma once

#include <expected>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "records/values/chat_thread.h"
#include "shell/terminal/command.h"

namespace vantrell::shell {

/// An ID begins with the text, however short; the case of letters does not count.
bool beginsWith(const Uuid& id, std::string_view word);

/// "There is no hook 3F. To see what there is: vantrell hooks".
UsageError notExactlyOne(std::size_t found, std::string_view kind, std::string_view word,
                         std::string_view listing);

/// The one of the list whose ID begins with the word. `kind` and `listing`, the command that shows
/// the list, are for the error.
template <typename Item>
std::expected<const Item*, UsageError> findByID(const std::vector<Item>& list,
                                                std::string_view word, std::string_view kind,
                                                std::string_view listing) {
  std::vector<const Item*> found;
  for (const Item& each : list) {
    if (beginsWith(each.id, word)) found.push_back(&each);
  }
  if (found.size() == 1) return found.front();
  return std::unexpected(notExactlyOne(found.size(), kind, word, listing));
}

/// The one task whose ID begins with the text.
std::expected<ThreadExecutionKey, UsageError> findTask(const std::vector<Workspace>& workspaces,
                                                       std::string_view idOrPrefix);
/// Several at once; each is in the answer once.
std::expected<std::vector<ThreadExecutionKey>, UsageError> findTasks(
    const std::vector<Workspace>& workspaces, std::span<const std::string> idsOrPrefixes);

/// The project with this name (in any case of letters), this folder or this beginning of an ID, in
/// this order; what looks like a path is only a folder, relative to `base`.
std::expected<Uuid, UsageError> findProject(const std::vector<Workspace>& workspaces,
                                            std::string_view named, std::string_view base);

/// The entry with this id or, where no other has it, this beginning of one: its place.
std::expected<std::size_t, UsageError> findEntry(const ChatThread& thread,
                                                 std::string_view idOrPrefix);

/// The place of the last thing that the user said.
std::expected<std::size_t, UsageError> latestPrompt(const ChatThread& thread);

const Workspace& workspaceOf(const std::vector<Workspace>& workspaces, const Uuid& id);
const ChatThread& threadOf(const std::vector<Workspace>& workspaces, const ThreadExecutionKey& key);

/// A provider by its id or the name of its program ("glm" or "opencode").
std::expected<AgentProvider, UsageError> readProvider(std::string_view word);
/// The same of one of the five that have a program of their own.
std::expected<AgentProvider, UsageError> readProgramOwner(std::string_view word);

}  // namespace vantrell::shell
