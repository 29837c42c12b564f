#include "shell/terminal/task_lookup.h"

#include <cctype>
#include <fmt/format.h>

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

constexpr std::size_t candidatesShown = 8;
/// Of the ID of a candidate: some more than lists show, for those that begin alike.
constexpr std::size_t shownOfCandidate = 13;

/// Upper case, without dashes.
std::string plainID(std::string_view text) {
  std::string plain;
  for (const char letter : text) {
    if (letter != '-') {
      plain += static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
    }
  }
  return plain;
}

struct Candidate {
  Uuid id;
  std::string what;
};

std::string listed(const std::vector<Candidate>& candidates) {
  std::string list;
  for (std::size_t i = 0; i < std::min(candidates.size(), candidatesShown); ++i) {
    list += fmt::format("\n  {}  {}", candidates[i].id.text().substr(0, shownOfCandidate),
                        candidates[i].what);
  }
  if (candidates.size() > candidatesShown) {
    list += fmt::format("\n  ... and {} more", candidates.size() - candidatesShown);
  }
  return list;
}

bool isPath(std::string_view word) {
  return word == "." || word == ".." || word.starts_with('~') ||
         word.find('/') != std::string_view::npos;
}

}  // namespace

std::optional<std::string> idPrefix(std::string_view word) {
  std::string plain = plainID(word);
  const bool isPossible = !plain.empty() && std::ranges::all_of(plain, [](char letter) {
    return std::isxdigit(static_cast<unsigned char>(letter)) != 0;
  });
  return isPossible ? std::optional(std::move(plain)) : std::nullopt;
}

bool beginsWith(const Uuid& id, std::string_view prefix) {
  return plainID(id.text()).starts_with(prefix);
}

std::expected<ThreadExecutionKey, UsageError> findTask(const std::vector<Workspace>& workspaces,
                                                       std::string_view idOrPrefix) {
  const auto prefix = idPrefix(idOrPrefix);
  const std::string shown = onOneLine(idOrPrefix);
  if (!prefix) {
    return usageError(
        fmt::format("\"{}\" is not the ID of a task, nor the beginning of one: those have the "
                    "digits 0-9 and A-F. "
                    "\"vantrell tasks\" lists the tasks with their IDs.",
                    shown));
  }
  std::vector<ThreadExecutionKey> found;
  std::vector<Candidate> candidates;
  for (const auto& workspace : workspaces) {
    for (const auto& thread : workspace.threads) {
      if (!beginsWith(thread.id, *prefix)) continue;
      found.push_back({workspace.id, thread.id});
      candidates.push_back(
          {thread.id, fmt::format("{} ({})", titleOf(thread), onOneLine(workspace.name))});
    }
  }
  if (found.size() == 1) return found.front();
  if (found.empty()) {
    return usageError(fmt::format(
        "There is no task {}. \"vantrell tasks --all\" lists the tasks with their IDs.", shown));
  }
  return usageError(fmt::format("Several tasks begin with {}. Give more of the ID:{}", shown,
                                listed(candidates)));
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
  const std::string shown = onOneLine(named);
  std::vector<Candidate> candidates;
  const auto collect = [&](auto&& matches) {
    for (const auto& each : workspaces) {
      if (matches(each)) {
        candidates.push_back({each.id, onOneLine(fmt::format("{}  {}", each.name, each.path))});
      }
    }
    return !candidates.empty();
  };
  const auto hasPath = [&](const Workspace& each) { return each.path == path; };
  const auto hasName = [&, name = text::lowercased(named)](const Workspace& each) {
    return text::lowercased(each.name) == name;
  };
  const auto hasID = [&, prefix = idPrefix(named)](const Workspace& each) {
    return prefix && beginsWith(each.id, *prefix);
  };
  if (isPath(named)) {
    if (!collect(hasPath)) {
      return usageError(fmt::format(
          "{} is not a project yet. \"vantrell projects\" lists them; to add the folder: "
          "vantrell projects add \"{}\"",
          onOneLine(path), shown));
    }
  } else if (!collect(hasName) && !collect(hasPath) && !collect(hasID)) {
    return usageError(
        fmt::format("There is no project {}. Give its name, its folder or the beginning of its ID; "
                    "\"vantrell projects\" lists them.",
                    shown));
  }
  if (candidates.size() == 1) return candidates.front().id;
  return usageError(fmt::format("Several projects match {}. Give the folder, or the ID:{}", shown,
                                listed(candidates)));
}

std::expected<std::size_t, UsageError> findEntry(const ChatThread& thread,
                                                 std::string_view idOrPrefix) {
  if (const auto exact = thread.entries.indexOf(idOrPrefix)) return *exact;
  std::vector<std::size_t> found;
  for (std::size_t i = 0; i < thread.entries.size(); ++i) {
    if (!idOrPrefix.empty() && thread.entries[i].id.starts_with(idOrPrefix)) found.push_back(i);
  }
  if (found.size() == 1) return found.front();
  return usageError(fmt::format(
      "{} entry of this task begins with \"{}\". To see them: vantrell show {} --entries",
      found.empty() ? "No" : "More than one", onOneLine(idOrPrefix),
      thread.id.text().substr(0, 8)));
}

const Workspace& workspaceOf(const std::vector<Workspace>& workspaces, const Uuid& id) {
  return *std::ranges::find(workspaces, id, &Workspace::id);
}

const ChatThread& threadOf(const std::vector<Workspace>& workspaces,
                           const ThreadExecutionKey& key) {
  return *workspaceOf(workspaces, key.workspaceID).thread(key.threadID);
}

}  // namespace vantrell::shell
