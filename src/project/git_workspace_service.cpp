#include "project/git_workspace_service.h"

#include <fmt/format.h>

#include "platform/text/text.h"
#include "project/git.h"

namespace vantrell::GitWorkspaceService {

namespace {

constexpr std::size_t ordinaryLimit = 500'000;  // bytes, as the other limits
constexpr std::size_t workingDiffLimit = 180'000;
constexpr std::size_t stagedDiffLimit = 120'000;

/// What the readers of the answers rely on, whatever the user likes to see in his own terminal.
const std::vector<std::pair<std::string, std::string>>& plainForms() {
  static const std::vector<std::pair<std::string, std::string>> forms = {
      {"color.ui", "false"},          {"core.quotePath", "false"},
      {"diff.noprefix", "false"},     {"diff.mnemonicPrefix", "false"},
      {"diff.srcPrefix", "a/"},       {"diff.dstPrefix", "b/"},
      {"diff.relative", "false"},     {"diff.submodule", "short"},
      {"diff.interHunkContext", "0"}, {"diff.suppressBlankEmpty", "false"},
  };
  return forms;
}

/// The trimmed text; empty after a failure.
std::string lineOf(const std::optional<GitAnswer>& answer) {
  return answer && answer->status == 0 ? std::string(text::trimmed(answer->text)) : std::string();
}

std::string textOf(std::optional<GitAnswer> answer) {
  return answer ? std::move(answer->text) : std::string();
}

std::string combined(const std::string& staged, const std::string& working) {
  std::vector<std::string> parts;
  if (!staged.empty()) parts.push_back("STAGED CHANGES\n\n" + staged);
  if (!working.empty()) parts.push_back("WORKING CHANGES\n\n" + working);
  return text::joined(parts, "\n\n");
}

}  // namespace

std::optional<GitAnswer> runGit(const std::vector<std::string>& arguments, const std::string& path,
                                std::size_t outputLimit, std::stop_token stop) {
  GitOptions options;
  options.errorsApart = true;
  options.isReadOnly = true;
  options.keptOutput = outputLimit;
  options.configuration = plainForms();
  options.stop = std::move(stop);
  const GitResult result = vantrell::runGit(path, arguments, std::move(options));
  if (result.status < 0) return std::nullopt;
  return GitAnswer{.status = result.status, .text = text::repaired(result.output)};
}

GitWorkspaceSnapshot read(const std::string& path, std::stop_token stop) {
  const auto ask = [&](const std::vector<std::string>& arguments,
                       std::size_t limit = ordinaryLimit) -> std::optional<GitAnswer> {
    if (stop.stop_requested()) return std::nullopt;
    return runGit(arguments, path, limit, stop);
  };
  if (lineOf(ask({"rev-parse", "--is-inside-work-tree"})) != "true") {
    return GitWorkspaceSnapshot::unavailable();
  }
  GitWorkspaceSnapshot snapshot;
  snapshot.isRepository = true;
  snapshot.branch = lineOf(ask({"branch", "--show-current"}));
  const std::string commit = lineOf(ask({"rev-parse", "--short", "HEAD"}));
  if (snapshot.branch.empty()) snapshot.branch = commit.empty() ? "detached" : commit;

  const auto status = ask({"status", "--porcelain=v1", "-z"});
  LineCounts counts;
  parseNumstat(textOf(ask({"diff", "--numstat", "-z"})), counts);
  parseNumstat(textOf(ask({"diff", "--cached", "--numstat", "-z"})), counts);
  if (status && status->status == 0) {
    snapshot.files = parseStatus(status->text, counts);
  } else {
    snapshot.error = "Git status could not be read.";
  }
  const auto working = textOf(ask({"diff", "--no-color", "--unified=3"}, workingDiffLimit));
  const auto staged =
      textOf(ask({"diff", "--cached", "--no-color", "--unified=3"}, stagedDiffLimit));
  snapshot.diff = combined(staged, working);
  snapshot.refreshedAt = Date::current();
  return snapshot;
}

void snapshot(const std::string& path, std::stop_token stop, MainQueue& main, Executor& background,
              std::function<void(GitWorkspaceSnapshot)> reply) {
  background.post([path, stop = std::move(stop), &main, reply = std::move(reply)]() mutable {
    auto picture = read(path, stop);
    if (stop.stop_requested()) return;
    main.post([&main, reply = std::move(reply), picture = std::move(picture)]() mutable {
      if (picture.isRepository) picture.refreshedAt = main.now();
      reply(std::move(picture));
    });
  });
}

}  // namespace vantrell::GitWorkspaceService
