#include <fmt/format.h>
#include <unistd.h>

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "platform/values/json.h"
#include "project/git_workspace_service.h"
#include "project/unified_diff_parser.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/json_member.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/standard_output.h"
#include "shell/terminal/state_view.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

constexpr CommandOption options[] = {
    {"--project", "PROJECT", "the folder of this project: its name, folder or ID"},
    {"--stat", "", "only the files, without their hunks"},
    {"--json", "", "for scripts: one JSON object"},
};

std::string lineCounts(const std::optional<std::int64_t>& additions,
                       const std::optional<std::int64_t>& deletions, const TerminalStyle& style) {
  if (!additions && !deletions) return {};
  return fmt::format("{} {}", style.green(fmt::format("+{}", additions.value_or(0))),
                     style.red(fmt::format("-{}", deletions.value_or(0))));
}

std::string headOf(const GitWorkspaceSnapshot& picture, const std::string& folder,
                   const TerminalStyle& style) {
  const std::size_t count = picture.files.size();
  const std::string changes =
      count == 0 ? std::string("nothing has changed")
                 : fmt::format("{} {} changed, {}", count, count == 1 ? "file" : "files",
                               lineCounts(picture.additions(), picture.deletions(), style));
  return fmt::format("{} in {}: {}\n", style.bold(onOneLine(picture.branch)),
                     onOneLine(withTilde(folder)),
                     picture.error ? style.red(*picture.error) : changes);
}

/// The letter of the index as what is safe, that of the working tree as what is not.
std::string statusOf(const GitChangedFile& file, const TerminalStyle& style) {
  const std::string& status = file.status;
  const auto isLetter = [](char each) { return each >= ' ' && each <= '~'; };
  if (status.size() != 2 || !std::ranges::all_of(status, isLetter)) return onOneLine(status);
  if (status == "??") return style.yellow(status);
  return style.green(status.substr(0, 1)) + style.red(status.substr(1));
}

std::string filesOf(const GitWorkspaceSnapshot& picture, const TerminalStyle& style) {
  std::string text;
  for (const auto& file : picture.files) {
    const auto counts = lineCounts(file.additions, file.deletions, style);
    text += fmt::format("  {} {}{}{}\n", statusOf(file, style), onOneLine(file.path),
                        counts.empty() ? "" : "  ", counts);
  }
  return text;
}

std::string styled(std::string_view line, const TerminalStyle& style) {
  const std::string clean = onOneLine(line);
  if (line.starts_with("diff --git ") || line == "STAGED CHANGES" || line == "WORKING CHANGES") {
    return style.bold(clean);
  }
  if (line.starts_with("@@")) return style.cyan(clean);
  if (line.starts_with('+')) return style.green(sanitized(line));
  if (line.starts_with('-')) return style.red(sanitized(line));
  return sanitized(line);
}

/// Git's limit on what is kept leaves a part of the diff without the end of its last line.
bool wasCut(std::string_view diff) {
  constexpr std::string_view seam = "\n\nWORKING CHANGES\n\n";
  const auto place = diff.starts_with("STAGED CHANGES") ? diff.find(seam) : std::string_view::npos;
  const auto isWhole = [](std::string_view part) { return part.empty() || part.ends_with('\n'); };
  return !isWhole(diff) || (place != std::string_view::npos && !isWhole(diff.substr(0, place)));
}

void writeDiff(std::string_view diff, const TerminalStyle& style, StandardOutput& out) {
  if (diff.empty()) return;
  out.write("\n");
  for (const auto line :
       text::split(diff.ends_with('\n') ? diff.substr(0, diff.size() - 1) : diff, '\n')) {
    if (out.isClosed()) return;
    out.write(styled(line, style) + "\n");
  }
  if (wasCut(diff)) {
    out.write("\n" + style.dim("The diff is long, and this is its beginning. git has all of it.") +
              "\n");
  }
}

std::string asJson(const GitWorkspaceSnapshot& picture, const std::string& folder) {
  std::string text;
  JsonWriter writer(text);
  writer.beginObject();
  member(writer, "path", text::repaired(folder));
  member(writer, "isRepository", picture.isRepository);
  member(writer, "branch", picture.branch);
  member(writer, "additions", picture.additions());
  member(writer, "deletions", picture.deletions());
  if (picture.error) member(writer, "error", *picture.error);
  writer.key("files");
  writer.beginArray();
  for (const auto& file : picture.files) {
    writer.beginObject();
    member(writer, "path", file.path);
    member(writer, "status", file.status);
    if (file.additions) member(writer, "additions", *file.additions);
    if (file.deletions) member(writer, "deletions", *file.deletions);
    writer.endObject();
  }
  writer.endArray();
  writer.key("hunks");
  writer.beginArray();
  for (const auto& hunk : UnifiedDiffParser::parse(picture.diff)) {
    writer.beginObject();
    member(writer, "filePath", hunk.filePath);
    member(writer, "header", hunk.header);
    member(writer, "body", hunk.body);
    member(writer, "additions", hunk.additions);
    member(writer, "deletions", hunk.deletions);
    writer.endObject();
  }
  writer.endArray();
  member(writer, "diff", picture.diff);
  writer.endObject();
  return text + "\n";
}

int show(const std::string& folder, const CommandArguments& arguments,
         const Environment& environment) {
  const GitWorkspaceSnapshot picture = GitWorkspaceService::read(folder);
  const bool isWhole = picture.isRepository && !picture.error;
  StandardOutput out;
  if (arguments.has("--json")) {
    out.write(asJson(picture, folder));
  } else if (!picture.isRepository) {
    complain(fmt::format("{} is in no Git repository, or Git is not installed.",
                         onOneLine(withTilde(folder))));
  } else {
    const auto style = TerminalStyle::of(STDOUT_FILENO, environment);
    out.write(headOf(picture, folder, style) + filesOf(picture, style));
    if (!arguments.has("--stat")) writeDiff(picture.diff, style, out);
  }
  return out.finish(isWhole ? exitStatus::completed : exitStatus::failed);
}

int diff(const CommandArguments& arguments, const Environment& environment) {
  const auto project = arguments.value("--project");
  if (!arguments.words.empty() && project) {
    return refuse({"A task has its own folder. Leave out --project."});
  }
  if (arguments.words.empty() && !project) {
    return show(files::standardized("."), arguments, environment);
  }
  std::string folder;
  const int status = withStateView([&](const StateView& state) -> std::expected<int, UsageError> {
    if (project) {
      const auto id = findProject(state.workspaces, *project);
      if (!id) return std::unexpected(id.error());
      folder = workspaceOf(state.workspaces, *id).path;
    } else {
      const auto key = findTask(state.workspaces, arguments.words.front());
      if (!key) return std::unexpected(key.error());
      folder = executionPath(workspaceOf(state.workspaces, key->workspaceID),
                             threadOf(state.workspaces, *key));
    }
    return exitStatus::completed;
  });
  return status == exitStatus::completed ? show(folder, arguments, environment) : status;
}

}  // namespace

const Command diffCommand{
    .name = "diff",
    .parameters = "[ID]",
    .summary = "show what has changed in a project or a task's worktree",
    .options = options,
    .mostWords = 1,
    .introduction =
        "Shows the Git picture of the folder in which a task works, of a project, or of the\n"
        "current folder: the branch, the changed files with their lines, and the hunks. ID is\n"
        "any beginning of a task's ID that no other task has. Nothing is changed.",
    .closing =
        "The two letters before a file are those of git status: index, then working tree.\n"
        "\n"
        "Exit status: 0 done, 1 failed or no Git repository, 2 wrong usage.\n"
        "\n"
        "Examples:\n"
        "  vantrell diff 3F2A91C0 | less\n"
        "  vantrell diff --stat --project website\n"
        "  vantrell diff --json | jq -r '.files[].path'",
    .run = diff,
};

}  // namespace vantrell::shell
