#include "project/patch_git.h"

#include <algorithm>
#include <fmt/format.h>

#include "platform/files/files.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {

/// Each of these would make a patch that does not go back on, or shift what a command is about.
const PatchGit::Configuration& neutralConfiguration() {
  static const PatchGit::Configuration configuration{
      {"color.ui", "false"},
      {"color.diff", "false"},
      {"color.status", "false"},
      {"diff.noprefix", "false"},
      {"diff.mnemonicPrefix", "false"},
      {"diff.srcPrefix", "a/"},
      {"diff.dstPrefix", "b/"},
      {"diff.relative", "false"},
      // A rename into the project's part of a repository names a file outside it, which is not
      // ours.
      {"diff.renames", "false"},
      {"diff.context", "3"},
      {"diff.interHunkContext", "0"},
      {"diff.suppressBlankEmpty", "false"},
      {"diff.submodule", "short"},
      // "-dirty" is no commit.
      {"diff.ignoreSubmodules", "dirty"},
      {"apply.whitespace", "nowarn"},
      {"apply.ignoreWhitespace", "false"},
      {"status.branch", "false"},
      {"status.showStash", "false"},
      {"status.showUntrackedFiles", "normal"},
      {"status.submoduleSummary", "false"},
      {"core.quotePath", "true"},
      {"core.safecrlf", "false"},
      // What is inside a submodule is in no checkpoint, so a restore must not touch it.
      {"submodule.recurse", "false"},
  };
  return configuration;
}

}  // namespace

PatchGit::PatchGit(std::string path, const WorkBudget& budget)
    : path_(std::move(path)), budget_(budget) {}

GitOptions PatchGit::with(GitOptions options) const {
  options.configuration.insert(options.configuration.begin(), neutralConfiguration().begin(),
                               neutralConfiguration().end());
  options.limit = budget_.timeLeft();
  options.keptOutput = std::size_t{1} << 30;  // half a list or patch is worse than none
  return options;
}

GitResult PatchGit::query(std::vector<std::string> arguments, GitOptions options) const {
  // Each submodule can ask to be left out, which counts more than "diff.ignoreSubmodules": a
  // pointer that is staged would be in no patch.
  if (arguments.front().starts_with("diff")) {
    arguments.insert(arguments.begin() + 1, "--ignore-submodules=dirty");
  }
  options.errorsApart = true;
  options.isReadOnly = true;
  return runGit(path_, std::move(arguments), with(std::move(options)));
}

TaskSafetyResult<GitResult> PatchGit::queryOrFail(std::vector<std::string> arguments,
                                                  GitOptions options) const {
  GitResult result = query(std::move(arguments), std::move(options));
  if (!result.succeeded()) return std::unexpected(gitError(result));
  if (result.wasCut) {
    return std::unexpected(TaskSafetyError::commandFailed("There are too many files or changes."));
  }
  return result;
}

TaskSafetyResult<> PatchGit::modify(std::vector<std::string> arguments, GitOptions options) const {
  const GitResult result = runGit(path_, std::move(arguments), with(std::move(options)));
  if (!result.succeeded()) return std::unexpected(gitError(result));
  return {};
}

/// A path may begin or end with white space.
std::string PatchGit::line(std::vector<std::string> arguments) const {
  std::string text = query(std::move(arguments)).output;
  if (text.ends_with('\n')) text.pop_back();
  return text;
}

std::string PatchGit::indexFile() const {
  return files::standardized(line({"rev-parse", "--git-path", "index"}), path_);
}

TaskSafetyResult<> PatchGit::write(std::vector<std::string> arguments, const std::string& file,
                                   GitOptions options) const {
  const auto result = queryOrFail(std::move(arguments), std::move(options));
  if (!result) return std::unexpected(result.error());
  const auto written = files::writeAtomically(file, result->output, 0600, files::Links::replace);
  if (!written) return std::unexpected(TaskSafetyError::filesFailed(written.error().description));
  return {};
}

std::vector<std::string> ignoredOf(const PatchGit& git, std::span<const std::string> paths) {
  if (paths.empty()) return {};
  std::string input;
  // A colon at the beginning would mean something to it, and a wild card takes in tracked files.
  constexpr std::string_view here = "./";
  for (const auto& each : paths) input.append(here).append(each).push_back('\0');
  const GitResult found =
      git.query({"check-ignore", "--no-index", "-z", "--stdin"}, {.input = std::move(input)});
  if (found.status == 0 || found.status == 1) {  // 1: there is none
    auto parts = found.parts();
    for (auto& each : parts) each.erase(0, here.size());
    return parts;
  }
  if (paths.size() == 1) return {};
  auto ignored = ignoredOf(git, paths.first(paths.size() / 2));
  std::ranges::move(ignoredOf(git, paths.subspan(paths.size() / 2)), std::back_inserter(ignored));
  return ignored;
}

TaskSafetyError gitError(const GitResult& result) {
  if (result.hasRunOut) return TaskSafetyError::commandFailed("Git took too long.");
  std::string message = result.text();
  const std::string errors(text::trimmed(text::repaired(result.errors)));
  if (!errors.empty()) message = errors;
  if (message.empty()) message = fmt::format("Git ended with status {}.", result.status);
  return TaskSafetyError::commandFailed(std::move(message));
}

}  // namespace vantrell
