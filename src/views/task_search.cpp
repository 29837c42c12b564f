#include "views/task_search.h"

#include "platform/text/utf8.h"
#include "platform/text/visible_text.h"
#include "views/task_rows.h"

namespace vantrell::views {

namespace {

constexpr std::size_t aroundHit = 300;    // bytes on either side, more than a line shows
constexpr std::size_t longestHit = 1000;  // bytes
constexpr std::size_t shortestEntryID = 8;

/// On one line; the blanks at the ends stay, since something follows there.
std::string flat(std::string_view text) {
  std::string line = text::sanitized(text);
  std::ranges::replace(line, '\n', ' ');
  std::ranges::replace(line, '\t', ' ');
  return line;
}

/// The place at or before `at` where a character begins.
std::size_t characterStart(std::string_view text, std::size_t at) {
  while (at > 0 && at < text.size() && utf8::isContinuation(text[at])) --at;
  return at;
}

void setExcerpt(SearchHit& hit, std::string_view text, const text::Finder::Hit& place) {
  const std::size_t end = place.offset + place.length;
  const std::size_t from =
      place.offset > aroundHit ? characterStart(text, place.offset - aroundHit) : 0;
  const std::size_t to =
      text.size() - end > aroundHit ? characterStart(text, end + aroundHit) : text.size();
  hit.before = (from > 0 ? "…" : "") + flat(text.substr(from, place.offset - from));
  const auto shown = text.substr(place.offset, place.length);
  hit.hit = flat(shown.substr(0, characterStart(shown, std::min(shown.size(), longestHit))));
  hit.after = flat(text.substr(end, to - end)) + (to < text.size() ? "…" : "");
}

}  // namespace

void searchTasks(const std::vector<Workspace>& workspaces, const SearchRequest& request,
                 const std::function<bool(const SearchHit&)>& found) {
  using Scope = SearchRequest::Scope;
  text::Finder finder(request.text, request.letterCase);
  for (const auto& [workspace, thread] :
       listedTasks(workspaces, ArchivedTasks::included, request.project)) {
    const auto isIn = [&](const ChatEntry* entry, std::string_view text, bool& goesOn) {
      const auto place = finder.find(text);
      if (!place) return false;
      SearchHit hit{.workspace = *workspace, .thread = *thread, .entry = entry};
      setExcerpt(hit, text, *place);
      goesOn = found(hit);
      return true;
    };
    bool goesOn = true;
    if (request.scope != Scope::entries) isIn(nullptr, thread->title, goesOn);
    if (request.scope != Scope::titles && goesOn) {
      for (const auto& entry : thread->entries) {
        const bool inTitle = entry.title && isIn(&entry, *entry.title, goesOn);
        if (!inTitle) isIn(&entry, entry.text, goesOn);
        if (!goesOn) break;
      }
    }
    if (!goesOn) return;
  }
}

std::string shortEntryID(const ChatThread& thread, const ChatEntry& entry) {
  std::size_t length = std::min(shortestEntryID, entry.id.size());
  for (const auto& other : thread.entries) {
    if (&other == &entry || other.id == entry.id) continue;
    const auto [end, otherEnd] = std::ranges::mismatch(entry.id, other.id);
    const auto common = static_cast<std::size_t>(end - entry.id.begin());
    length = std::max(length, std::min(common + 1, entry.id.size()));
  }
  return entry.id.substr(0, length);
}

std::vector<std::string> shortEntryIDs(const ChatThread& thread) {
  std::vector<std::string> sorted;
  for (const auto& entry : thread.entries) sorted.push_back(entry.id);
  std::ranges::sort(sorted);
  const auto common = [](std::string_view a, std::string_view b) {
    return static_cast<std::size_t>(std::ranges::mismatch(a, b).in1 - a.begin());
  };
  std::vector<std::string> ids;
  for (const auto& entry : thread.entries) {
    const auto place = std::ranges::lower_bound(sorted, entry.id);
    std::size_t length = shortestEntryID - 1;
    if (place != sorted.begin()) length = std::max(length, common(*(place - 1), entry.id));
    if (place + 1 != sorted.end()) length = std::max(length, common(*(place + 1), entry.id));
    ids.push_back(entry.id.substr(0, length + 1));
  }
  return ids;
}

}  // namespace vantrell::views
