// What is read of git's output: counts of lines, the status, diffs. The first byte chooses; behind
// it the counts end where the first two NULs stand together.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/text/text.h"
#include "project/git_workspace_service.h"
#include "project/unified_diff_parser.h"

using namespace vantrell;

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

void readStatus(std::string_view text) {
  using namespace std::string_view_literals;
  const auto end = text.find("\0\0"sv);
  GitWorkspaceService::LineCounts counts;
  GitWorkspaceService::parseNumstat(text.substr(0, end), counts);
  if (end != std::string_view::npos) text.remove_prefix(end + 2);
  const auto files = GitWorkspaceService::parseStatus(text, counts);
  require(std::ranges::is_sorted(files, {}, &GitChangedFile::path));
  for (const auto& file : files) {
    require(text::isValidUtf8(file.path) && text::isValidUtf8(file.status));
    require(text::characterCount(file.status) <= 2);
  }
}

void readDiff(std::string_view text) {
  const auto hunks = UnifiedDiffParser::parse(text);
  require(hunks.empty() == text.empty());
  std::size_t kept = 0;
  for (const auto& hunk : hunks) {
    const auto lines = std::ranges::count(hunk.body, '\n') + 1;
    require(hunk.additions >= 0 && hunk.deletions >= 0);
    require(hunk.additions + hunk.deletions <= lines);
    require(text::isValidUtf8(hunk.filePath));
    kept += hunk.body.size();
  }
  require(kept <= text.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  // As the output of git comes to the readers.
  const std::string text = text::repaired({reinterpret_cast<const char*>(data) + 1, size - 1});
  data[0] % 2 == 0 ? readStatus(text) : readDiff(text);
  return 0;
}
