#include "project/unified_diff_parser.h"

#include <optional>
#include <string>

#include "platform/text/text.h"

namespace vantrell::UnifiedDiffParser {

namespace {

constexpr std::string_view fileMark = "diff --git ";
constexpr std::string_view hunkMark = "@@";
constexpr std::string_view fileOfUnknown = "Changes";

struct Counts {
  std::int64_t additions = 0;
  std::int64_t deletions = 0;

  void add(std::string_view line) {
    if (line.starts_with('+') && !line.starts_with("+++")) ++additions;
    if (line.starts_with('-') && !line.starts_with("---")) ++deletions;
  }
};

/// Git writes names with control characters, quotes and backslashes as C does: "a\tb\303\274".
std::string unquoted(std::string_view text) {
  constexpr std::string_view letters = "abtnvfr";
  constexpr std::string_view meant = "\a\b\t\n\v\f\r";
  std::string name;
  while (!text.empty()) {
    const char first = text.front();
    text.remove_prefix(1);
    if (first == '"') break;
    if (first != '\\' || text.empty()) {
      name += first;
      continue;
    }
    if (const auto place = letters.find(text.front()); place != std::string_view::npos) {
      name += meant[place];
      text.remove_prefix(1);
      continue;
    }
    int byte = 0;
    std::size_t digits = 0;
    while (digits < 3 && digits < text.size() && text[digits] >= '0' && text[digits] <= '7') {
      byte = byte * 8 + (text[digits++] - '0');
    }
    name += digits > 0 ? static_cast<char>(byte) : text.front();
    text.remove_prefix(std::max<std::size_t>(digits, 1));
  }
  return text::repaired(name);
}

/// The file of a line "diff --git a/{old} b/{new}": what stands behind the first " b/". Absent when
/// the line names none.
std::optional<std::string> fileOfHeader(std::string_view line) {
  constexpr std::string_view plain = " b/";
  constexpr std::string_view quoted = " \"b/";
  if (const auto place = line.find(plain); place != std::string_view::npos) {
    return std::string(line.substr(place + plain.size()));
  }
  if (const auto place = line.find(quoted); place != std::string_view::npos) {
    return unquoted(line.substr(place + quoted.size()));
  }
  return std::nullopt;
}

/// The hunk that the lines are going into.
class OpenHunk {
 public:
  explicit OpenHunk(std::vector<DiffHunk>& finished) : finished_(finished) {}

  void open(std::string_view header) {
    flush();
    header_ = header;
  }
  void add(std::string_view line) {
    if (!header_) return;
    if (hasLines_) body_ += '\n';
    hasLines_ = true;
    body_ += line;
    counts_.add(line);
  }
  void flush() {
    if (header_) {
      finished_.push_back({.filePath = file,
                           .header = std::string(*header_),
                           .body = std::move(body_),
                           .additions = counts_.additions,
                           .deletions = counts_.deletions});
    }
    header_.reset();
    body_.clear();
    hasLines_ = false;
    counts_ = {};
  }

  std::string file{fileOfUnknown};

 private:
  std::vector<DiffHunk>& finished_;
  std::optional<std::string_view> header_;
  std::string body_;
  bool hasLines_ = false;
  Counts counts_;
};

}  // namespace

std::vector<DiffHunk> parse(std::string_view text) {
  std::vector<DiffHunk> hunks;
  if (text.empty()) return hunks;
  const auto lines = text::split(text, '\n');
  OpenHunk hunk(hunks);
  for (const std::string_view line : lines) {
    if (line.starts_with(fileMark)) {
      hunk.flush();
      if (auto file = fileOfHeader(line)) hunk.file = *std::move(file);
    } else if (line.starts_with(hunkMark)) {
      hunk.open(line);
    } else {
      hunk.add(line);
    }
  }
  hunk.flush();
  if (!hunks.empty()) return hunks;
  Counts counts;
  for (const std::string_view line : lines) counts.add(line);
  hunks.push_back({.filePath = std::string(fileOfUnknown),
                   .header = "Full diff",
                   .body = std::string(text),
                   .additions = counts.additions,
                   .deletions = counts.deletions});
  return hunks;
}

bool isCut(std::string_view text) {
  // Where git's output was cut, the end of a line is missing.
  constexpr std::string_view seam = "\n\nWORKING CHANGES\n\n";
  const auto isWhole = [](std::string_view part) { return part.empty() || part.ends_with('\n'); };
  const auto place = text.starts_with("STAGED CHANGES") ? text.find(seam) : std::string_view::npos;
  return !isWhole(text) || (place != std::string_view::npos && !isWhole(text.substr(0, place)));
}

}  // namespace vantrell::UnifiedDiffParser
