// `vantrell diff`: what has changed in a folder, as git sees it.
#include <fmt/format.h>

#include "platform/text/text.h"
#include "project/git_workspace_service.h"
#include "project/unified_diff_parser.h"
#include "shell/terminal/command_context.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

std::string lineCounts(const std::optional<std::int64_t>& additions,
                       const std::optional<std::int64_t>& deletions, const TerminalStyle& style) {
  if (!additions && !deletions) return {};
  return fmt::format("{} {}", style.green(fmt::format("+{}", additions.value_or(0))),
                     style.red(fmt::format("-{}", deletions.value_or(0))));
}

std::string headOf(const GitWorkspaceSnapshot& snapshot, const std::string& folder,
                   const TerminalStyle& style) {
  const std::string changes =
      snapshot.error ? style.red(onOneLine(*snapshot.error))
      : snapshot.files.empty()
          ? "nothing has changed"
          : fmt::format("{} changed, {}", counted(snapshot.files.size(), "file"),
                        lineCounts(snapshot.additions(), snapshot.deletions(), style));
  std::string text = fmt::format("{} in {}: {}\n", style.bold(onOneLine(snapshot.branch)),
                                 onOneLine(withTilde(folder)), changes);
  for (const auto& file : snapshot.files) {
    const auto counts = lineCounts(file.additions, file.deletions, style);
    text += fmt::format("  {} {}{}{}\n", style.yellow(sanitized(file.status)), onOneLine(file.path),
                        counts.empty() ? "" : "  ", counts);
  }
  return text;
}

std::string styled(std::string_view line, const TerminalStyle& style) {
  const std::string clean = sanitized(line);
  if (line.starts_with("diff --git ") || line == "STAGED CHANGES" || line == "WORKING CHANGES") {
    return style.bold(clean);
  }
  if (line.starts_with("@@")) return style.cyan(clean);
  if (line.starts_with('+')) return style.green(clean);
  return line.starts_with('-') ? style.red(clean) : clean;
}

/// Git's limit on what is kept leaves a part of the diff without the end of its last line.
bool wasCut(std::string_view diff) {
  constexpr std::string_view seam = "\n\nWORKING CHANGES\n\n";
  const auto place = diff.starts_with("STAGED CHANGES") ? diff.find(seam) : std::string_view::npos;
  const auto isWhole = [](std::string_view part) { return part.empty() || part.ends_with('\n'); };
  return !isWhole(diff) || (place != std::string_view::npos && !isWhole(diff.substr(0, place)));
}

void writeDiff(std::string_view diff, Console& console) {
  if (diff.empty()) return;
  console.write("\n");
  const auto lines = diff.ends_with('\n') ? diff.substr(0, diff.size() - 1) : diff;
  for (const auto line : text::split(lines, '\n')) {
    if (console.isClosed()) return;
    console.write(styled(line, console.style()) + "\n");
  }
  if (wasCut(diff)) {
    console.write("\nThe diff is long, and this is its beginning. git has all of it.\n");
  }
}

JsonObject asJson(const GitWorkspaceSnapshot& snapshot, const std::string& folder) {
  Json::Array files, hunks;
  for (const auto& file : snapshot.files) {
    JsonObject each{{"path", file.path}, {"status", file.status}};
    setIfKnown(each, "additions", file.additions);
    setIfKnown(each, "deletions", file.deletions);
    files.push_back(std::move(each));
  }
  for (const auto& hunk : UnifiedDiffParser::parse(snapshot.diff)) {
    hunks.push_back(JsonObject{{"filePath", hunk.filePath},
                               {"header", hunk.header},
                               {"body", hunk.body},
                               {"additions", hunk.additions},
                               {"deletions", hunk.deletions}});
  }
  JsonObject all{{"path", text::repaired(folder)},
                 {"isRepository", snapshot.isRepository},
                 {"branch", snapshot.branch},
                 {"additions", snapshot.additions()},
                 {"deletions", snapshot.deletions()}};
  setIfKnown(all, "error", snapshot.error);
  all.set("files", std::move(files));
  all.set("hunks", std::move(hunks));
  all.set("diff", snapshot.diff);
  return all;
}

void showChanges(CommandContext& context, const std::string& folder) {
  const auto snapshot = std::make_shared<GitWorkspaceSnapshot>();
  const auto show = [&context, snapshot, folder] {
    if (context.isJson()) {
      context.writeJson(asJson(*snapshot, folder));
    } else if (!snapshot->isRepository) {
      context.complain(withTilde(folder) + " is not in a Git repository, or Git is not installed.");
    } else {
      context.console.write(headOf(*snapshot, folder, context.style()));
      if (!context.arguments.has("--stat")) writeDiff(snapshot->diff, context.console);
    }
    const bool isWhole = snapshot->isRepository && !snapshot->error;
    context.finish(isWhole ? exitStatus::completed : exitStatus::failed);
  };
  context.inBackground([snapshot, folder] { *snapshot = GitWorkspaceService::read(folder); }, show);
}

void diff(CommandContext& context) {
  const bool hasTask = !context.arguments.words.empty();
  const bool hasProject = context.arguments.has("--project");
  if (hasTask && hasProject) {
    return context.misused("A task has its own folder. Leave out --project.");
  }
  if (!hasTask && !hasProject) return showChanges(context, context.caller.folder);
  const auto stored = context.stored();
  if (!stored) return context.fail(stored.error());
  const auto& workspaces = stored->workspaces;
  if (hasProject) {
    const auto id = context.projectHere(workspaces);
    if (!id) return context.misused(id.error());
    return showChanges(context, workspaceOf(workspaces, *id).path);
  }
  const auto key = findTask(workspaces, context.word(0));
  if (!key) return context.misused(key.error());
  showChanges(context,
              executionPath(workspaceOf(workspaces, key->workspaceID), threadOf(workspaces, *key)));
}

constexpr CommandOption options[] = {
    {"--project", "PROJECT", "the folder of this project: its name, folder or ID"},
    {"--stat", "", "only the files, without their hunks"},
    jsonOption,
};

constexpr Command commands[] = {
    {"diff", "[ID]", "show what has changed in a project or a task's worktree", options, diff,
     "Shows the state of Git in the folder in which a task works, of a project, or of the\n"
     "current folder: the branch, the changed files with their lines, and the hunks.",
     "The two letters before a file are those of git status: index, then working tree.\n"
     "\n"
     "Exit status: 0 done, 1 failed or not a Git repository, 2 wrong usage."},
};

}  // namespace

std::span<const Command> diffCommands() {
  return commands;
}

}  // namespace vantrell::shell
