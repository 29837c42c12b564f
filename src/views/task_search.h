// Full-text search over the tasks, one transcript after the other, so that only one of them need be
// in memory. Pure, any thread.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/text/text_finder.h"
#include "records/values/chat_thread.h"

namespace vantrell::views {

struct SearchRequest {
  enum class Scope { titles, entries, all };

  std::string text;
  Scope scope = Scope::all;
  text::Finder::Case letterCase = text::Finder::Case::ignored;
  std::optional<Uuid> project;
};

constexpr auto rawTexts(SearchRequest::Scope) {
  return std::to_array<std::string_view>({"titles", "entries", "all"});
}

/// What WorkspaceOperations::openSearchResult() opens. Valid during the call that hands it out.
struct SearchHit {
  const Workspace& workspace;
  const ChatThread& thread;
  const ChatEntry* entry;  // null: the title of the task
  /// The first place in the title or entry, on one line and fit to be shown, with some of what
  /// stands around it; an ellipsis where that was cut.
  std::string before, hit, after;
};

/// Newest tasks first, archived ones included; entries from the oldest on, each at most once. Ends
/// when `found` returns false.
void searchTasks(const std::vector<Workspace>& workspaces, const SearchRequest& request,
                 const std::function<bool(const SearchHit&)>& found);

/// As much of an entry's ID as names it within its transcript, at least 8 characters.
std::string shortEntryID(const ChatThread& thread, const ChatEntry& entry);
/// The same of all entries, in less time.
std::vector<std::string> shortEntryIDs(const ChatThread& thread);

}  // namespace vantrell::views
