#include "shell/terminal/task_lookup.h"

#include <fmt/format.h>

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "runtimes/catalog/provider_registry.h"
#include "runtimes/catalog/runtime_login.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"
#include "views/provider_rows.h"

namespace vantrell::shell {

namespace {

bool looksLikePath(std::string_view word) {
  return word == "." || word == ".." || word.starts_with('~') || word.contains('/');
}

}  // namespace

bool beginsWith(const Uuid& id, std::string_view word) {
  return !word.empty() && text::lowercased(id.text()).starts_with(text::lowercased(word));
}

UsageError notExactlyOne(std::size_t found, std::string_view kind, std::string_view word,
                         std::string_view listing) {
  return {fmt::format("{} {} {}. To see what there is: vantrell {}",
                      found == 0 ? "There is no" : "This means more than one", kind,
                      onOneLine(word), listing)};
}

std::expected<ThreadExecutionKey, UsageError> findTask(const std::vector<Workspace>& workspaces,
                                                       std::string_view idOrPrefix) {
  std::vector<ThreadExecutionKey> found;
  for (const auto& workspace : workspaces) {
    for (const auto& thread : workspace.threads) {
      if (beginsWith(thread.id, idOrPrefix)) found.push_back({workspace.id, thread.id});
    }
  }
  if (found.size() == 1) return found.front();
  return std::unexpected(notExactlyOne(found.size(), "task", idOrPrefix, "tasks --all"));
}

std::expected<std::vector<ThreadExecutionKey>, UsageError> findTasks(
    const std::vector<Workspace>& workspaces, std::span<const std::string> idsOrPrefixes) {
  std::vector<ThreadExecutionKey> all;
  for (const auto& each : idsOrPrefixes) {
    const auto found = findTask(workspaces, each);
    if (!found) return std::unexpected(found.error());
    if (std::ranges::find(all, *found) == all.end()) all.push_back(*found);
  }
  return all;
}

std::expected<Uuid, UsageError> findProject(const std::vector<Workspace>& workspaces,
                                            std::string_view named, std::string_view base) {
  const std::string path = files::standardized(files::expandingTilde(named), base);
  const std::string name = text::lowercased(named);
  std::vector<Uuid> found;
  const auto collect = [&](auto&& matches) {
    for (const auto& each : workspaces) {
      if (matches(each)) found.push_back(each.id);
    }
    return !found.empty();
  };
  const auto hasPath = [&](const Workspace& each) { return each.path == path; };
  const auto hasName = [&](const Workspace& each) { return text::lowercased(each.name) == name; };
  const auto hasID = [&](const Workspace& each) { return beginsWith(each.id, named); };
  if (looksLikePath(named)) {
    if (collect(hasPath)) return found.front();
    return usageError(
        fmt::format("{} is not a project yet. To add it: vantrell projects add \"{}\"",
                    onOneLine(path), onOneLine(named)));
  }
  static_cast<void>(collect(hasName) || collect(hasPath) || collect(hasID));
  if (found.size() == 1) return found.front();
  return std::unexpected(notExactlyOne(found.size(), "project", named, "projects"));
}

std::expected<std::size_t, UsageError> findEntry(const ChatThread& thread,
                                                 std::string_view idOrPrefix) {
  if (const auto exact = thread.entries.indexOf(idOrPrefix)) return *exact;
  std::vector<std::size_t> found;
  for (std::size_t i = 0; i < thread.entries.size(); ++i) {
    if (!idOrPrefix.empty() && thread.entries[i].id.starts_with(idOrPrefix)) found.push_back(i);
  }
  if (found.size() == 1) return found.front();
  return std::unexpected(notExactlyOne(found.size(), "entry", idOrPrefix,
                                       fmt::format("show {} --entries", shortID(thread.id))));
}

std::expected<std::size_t, UsageError> latestPrompt(const ChatThread& task) {
  for (std::size_t i = task.entries.size(); i > 0; --i) {
    if (task.entries[i - 1].kind == ChatEntryKind::user) return i - 1;
  }
  return usageError("This task has no prompt yet.");
}

const Workspace& workspaceOf(const std::vector<Workspace>& workspaces, const Uuid& id) {
  return *std::ranges::find(workspaces, id, &Workspace::id);
}

const ChatThread& threadOf(const std::vector<Workspace>& workspaces,
                           const ThreadExecutionKey& key) {
  return *workspaceOf(workspaces, key.workspaceID).thread(key.threadID);
}

std::expected<AgentProvider, UsageError> readProvider(std::string_view word) {
  if (const auto provider = views::providerNamed(word)) return *provider;
  return usageError(fmt::format(
      "There is no provider \"{}\".{} There are grok, codex, kimi, glm, claude, local and tasklet.",
      onOneLine(word), suggestion(word, views::providerWords())));
}

std::expected<AgentProvider, UsageError> readProgramOwner(std::string_view word) {
  const auto provider = readProvider(word);
  if (!provider || loginFlow(*provider)) return provider;
  return usageError(fmt::format("{} has no program of its own. {}", rawText(*provider),
                                ProviderRegistry::setupHint(*provider)));
}

}  // namespace vantrell::shell
