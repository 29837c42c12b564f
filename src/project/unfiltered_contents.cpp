#include "project/unfiltered_contents.h"

#include <algorithm>
#include <fmt/format.h>
#include <unistd.h>

#include "platform/text/text.h"

namespace vantrell {

namespace {

/// Paths that one command line takes.
constexpr std::size_t pathsAtOnce = 500;

/// Whether git converts line ends of a file on its way in or out; a line of "ls-files --eol".
bool isConverted(std::string_view line, bool byDefault) {
  const auto attributes = line.find("attr/");
  const auto end = line.find('\t');
  if (attributes == line.npos || end == line.npos) return false;
  const auto attribute = text::trimmed(line.substr(attributes + 5, end - attributes - 5));
  if (line.substr(0, attributes).contains("w/-text")) return false;
  return attribute.empty() ? byDefault : attribute != "-text";
}

}  // namespace

TaskSafetyResult<std::set<std::string, std::less<>>> filteredFiles(
    const PatchGit& git, const std::vector<std::string>& paths) {
  std::set<std::string, std::less<>> filtered;
  if (paths.empty()) return filtered;
  std::string input;
  for (const auto& each : paths) input.append(each).push_back('\0');
  const auto found =
      git.queryOrFail({"check-attr", "-z", "--stdin", "filter", "ident", "working-tree-encoding"},
                      {.input = std::move(input)});
  if (!found) return std::unexpected(found.error());
  const auto parts = text::split(found->output, '\0');  // path, attribute and value by turns
  for (std::size_t i = 0; i + 2 < parts.size(); i += 3) {
    if (parts[i + 2] != "unspecified" && parts[i + 2] != "unset") filtered.emplace(parts[i]);
  }
  return filtered;
}

TaskSafetyResult<> recordUnfilteredContents(const PatchGit& git,
                                            const std::vector<std::string>& paths,
                                            const std::string& folder, WorkBudget& budget) {
  if (paths.empty()) return {};
  const auto filtered = filteredFiles(git, paths);
  if (!filtered) return std::unexpected(filtered.error());
  const std::string automatic = git.query({"config", "core.autocrlf"}).text();
  const bool byDefault = automatic == "true" || automatic == "input";
  for (std::size_t from = 0; from < paths.size(); from += pathsAtOnce) {
    std::vector<std::string> command{"ls-files", "--eol", "-z", "--"};
    const std::size_t to = std::min(from + pathsAtOnce, paths.size());
    for (std::size_t i = from; i < to; ++i) command.push_back(":(literal)" + paths[i]);
    const auto lines = git.queryOrFail(std::move(command));
    if (!lines) return std::unexpected(lines.error());
    for (const auto& line : lines->parts()) {
      const auto tab = line.find('\t');
      if (tab == line.npos) continue;
      const std::string path = line.substr(tab + 1);
      if (!isConverted(line, byDefault) && !filtered->contains(path)) continue;
      const std::string place = fmt::format("{}/{}", git.path(), path);
      // A folder that is there for nothing would take the place of a file when it goes back; and
      // what is in a submodule is not ours.
      if (!standsAt(place) || isRealFolder(place)) continue;
      if (auto made = secureDirectory(folder); !made) return made;
      if (auto made = makeParents(folder, path, git.path()); !made) return made;
      const std::string copy = fmt::format("{}/{}", folder, path);
      ::unlink(copy.c_str());
      auto copied = copyItem(place, copy, budget);
      if (!copied) return copied;
    }
  }
  return {};
}

}  // namespace vantrell
