#include <fmt/format.h>
#include <unistd.h>

#include "app/user_state.h"
#include "platform/queues/dispatch.h"
#include "platform/queues/run_loop.h"
#include "platform/text/text.h"
#include "platform/values/json.h"
#include "project/artifact_discovery.h"
#include "project/git_workspace_service.h"
#include "records/stores/imagine_store.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/json_member.h"
#include "shell/terminal/standard_output.h"
#include "shell/terminal/state_view.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"

namespace vantrell::shell {

namespace {

using Source = ProjectArtifact::Source;

constexpr CommandOption options[] = {
    {"--json", "", "for scripts: the files, one JSON object a line"},
};

std::string_view wordFor(Source source) {
  switch (source) {
    case Source::agent: return "tool call";
    case Source::changed: return "changed";
    case Source::project: return "project";
    case Source::imagine: return "imagine";
  }
  return "";
}

/// Named from the folder, which may lie below the root of its repository: git names them from
/// there.
std::vector<GitChangedFile> readChangedFiles(const std::string& folder) {
  constexpr std::size_t longestPath = 4096;  // bytes
  auto changed = GitWorkspaceService::read(folder).files;
  // "../../", or nothing at the root.
  const auto toRoot =
      GitWorkspaceService::runGit({"rev-parse", "--show-cdup"}, folder, longestPath);
  if (!toRoot || toRoot->status != 0) return changed;
  for (auto& file : changed) file.path.insert(0, text::trimmed(toRoot->text));
  return changed;
}

std::vector<GitChangedFile> changedFiles(const std::string& folder) {
  RunLoop loop;
  BackgroundPool pool(1);
  std::vector<GitChangedFile> changed;
  pool.post([&] {
    changed = readChangedFiles(folder);
    loop.post([&loop] { loop.quit(); });
  });
  loop.run();
  return changed;
}

std::string asJson(const ProjectArtifact& artifact) {
  std::string line;
  JsonWriter writer(line);
  writer.beginObject();
  member(writer, "path", artifact.path);
  member(writer, "displayPath", artifact.displayPath());
  member(writer, "source", rawText(artifact.source));
  writer.endObject();
  return line + "\n";
}

std::string tableOf(const std::vector<ProjectArtifact>& artifacts, const TerminalStyle& style) {
  TextTable table({{"FROM"}, {.heading = "FILE", .least = 20, .cutsFront = true}});
  for (const auto& each : artifacts) {
    table.add({{std::string(wordFor(each.source)), &TerminalStyle::dim}, {each.displayPath()}});
  }
  return table.text(style, columnsForTables(STDOUT_FILENO));
}

int listArtifacts(const CommandArguments& arguments, const Environment& environment) {
  return withStateView([&](const StateView& state) -> std::expected<int, UsageError> {
    const auto key = findTask(state.workspaces, arguments.words.front());
    if (!key) return std::unexpected(key.error());
    const ChatThread& thread = threadOf(state.workspaces, *key);
    const std::string root = executionPath(workspaceOf(state.workspaces, key->workspaceID), thread);
    const auto artifacts =
        ArtifactDiscovery::artifacts(root, changedFiles(root), thread.entries,
                                     ImagineStore::peek(UserFolders{}.orOwn().support));
    StandardOutput out;
    if (arguments.has("--json")) {
      for (const auto& each : artifacts) out.write(asJson(each));
      return out.finish(exitStatus::completed);
    }
    const auto style = TerminalStyle::of(STDOUT_FILENO, environment);
    out.write(artifacts.empty() ? style.dim("This task has made no files.\n")
                                : tableOf(artifacts, style));
    return out.finish(exitStatus::completed);
  });
}

}  // namespace

const Command artifactsCommand{
    .name = "artifacts",
    .parameters = "ID",
    .summary = "list the files that a task has made",
    .options = options,
    .fewestWords = 1,
    .mostWords = 1,
    .introduction =
        "Lists the files that are there and that the task's tool calls have named, then those\n"
        "that git sees as changed in its folder, then the pictures and films of \"vantrell\n"
        "imagine\".",
    .closing = "Exit status: 0 done, 1 failed, 2 wrong usage.",
    .run = listArtifacts,
};

}  // namespace vantrell::shell
