#include <charconv>
#include <limits>

#include "platform/text/text.h"
#include "platform/text/utf8.h"
#include "project/git_workspace_service.h"

namespace vantrell::GitWorkspaceService {

namespace {

std::vector<std::string_view> pieces(std::string_view text) {
  auto all = text::split(text, '\0');
  std::erase_if(all, [](std::string_view piece) { return piece.empty(); });
  return all;
}

/// Absent for "-", which stands for a binary file.
std::optional<std::int64_t> number(std::string_view digits) {
  std::int64_t value = 0;
  const char* end = digits.data() + digits.size();
  const auto read = std::from_chars(digits.data(), end, value);
  if (read.ec != std::errc() || read.ptr != end || value < 0) return std::nullopt;
  return value;
}

void add(std::map<std::string, std::int64_t, std::less<>>& counts, std::string_view path,
         std::string_view digits) {
  const auto count = number(digits);
  if (!count) return;
  const auto place = counts.try_emplace(std::string(path), 0).first;
  if (__builtin_add_overflow(place->second, *count, &place->second)) {
    place->second = std::numeric_limits<std::int64_t>::max();
  }
}

std::optional<std::int64_t> countOf(const std::map<std::string, std::int64_t, std::less<>>& counts,
                                    std::string_view path) {
  const auto found = counts.find(path);
  return found == counts.end() ? std::nullopt : std::optional(found->second);
}

/// The first `count` characters (code points), or nothing when there are fewer.
std::optional<std::string_view> front(std::string_view text, int count) {
  const char* at = text.data();
  const char* const end = at + text.size();
  for (; count > 0; --count) {
    if (at == end) return std::nullopt;
    at += utf8::sequenceAt(at, end).length;
  }
  return text.substr(0, static_cast<std::size_t>(at - text.data()));
}

}  // namespace

void parseNumstat(std::string_view text, LineCounts& counts) {
  const auto all = pieces(text);
  for (std::size_t i = 0; i < all.size(); ++i) {
    const auto first = all[i].find('\t');
    if (first == std::string_view::npos) continue;
    const auto second = all[i].find('\t', first + 1);
    if (second == std::string_view::npos) continue;
    const auto added = all[i].substr(0, first);
    const auto deleted = all[i].substr(first + 1, second - first - 1);
    const auto count = [&](std::string_view path) {
      add(counts.additions, path, added);
      add(counts.deletions, path, deleted);
    };
    if (const auto path = all[i].substr(second + 1); !path.empty()) {
      count(path);
      continue;
    }
    if (i + 2 >= all.size()) break;
    // A rename: its old and its new name follow.
    counts.newNames.insert_or_assign(std::string(all[i + 1]), std::string(all[i + 2]));
    count(all[i + 2]);
    i += 2;
  }
}

std::vector<GitChangedFile> parseStatus(std::string_view text, const LineCounts& stats) {
  constexpr std::string_view arrow = " -> ";
  std::vector<GitChangedFile> files;
  const auto all = pieces(text);
  for (std::size_t i = 0; i < all.size(); ++i) {
    const auto head = front(all[i], 3);
    if (!head) continue;
    const std::string_view status = *front(all[i], 2);
    std::string_view path = all[i].substr(head->size());
    std::string_view counted;  // the name that the counts have
    if (status.find_first_of("RC") != std::string_view::npos) {
      if (i + 1 < all.size()) path = all[++i];
      const auto renamed = stats.newNames.find(path);
      if (renamed != stats.newNames.end()) counted = renamed->second;
    } else if (const auto place = path.find(arrow); place != std::string_view::npos) {
      path.remove_prefix(place + arrow.size());
    }
    if (counted.empty()) counted = path;
    files.push_back({.path = std::string(path),
                     .status = std::string(status),
                     .additions = countOf(stats.additions, counted),
                     .deletions = countOf(stats.deletions, counted)});
  }
  std::ranges::stable_sort(files, {}, &GitChangedFile::path);
  return files;
}

}  // namespace vantrell::GitWorkspaceService
