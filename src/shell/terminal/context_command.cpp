// `vantrell context`: what every agent is told about a project. Looking takes no lock, so that it
// also answers while the program runs.
#include <fmt/format.h>
#include <unistd.h>

#include "app/user_state.h"
#include "engine/projects/project_context_service.h"
#include "platform/terminal/terminal.h"
#include "platform/text/text.h"
#include "project/context_discovery.h"
#include "records/stores/orchestration_store.h"
#include "records/stores/project_context_store.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/standard_output.h"
#include "shell/terminal/state_view.h"
#include "shell/terminal/task_change.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_style.h"
#include "shell/terminal/terminal_text.h"
#include "shell/terminal/text_table.h"

namespace vantrell::shell {

namespace {

constexpr CommandOption options[] = {
    {"--project", "P", "a project's name, folder or ID (default: the current folder)"},
    {"--json", "", "for scripts: all of it as one JSON object"},
};

/// What is looked at.
struct Known {
  /// With the guidance as it is now, whatever was stored.
  Known(const Workspace& its, ProjectContextProfile kept)
      : workspace(its), profile(std::move(kept)) {
    profile.discoveredSources = discoverContextSources(workspace.path);
  }

  const Workspace& workspace;
  ProjectContextProfile profile;
};

std::expected<Uuid, UsageError> projectIn(const std::vector<Workspace>& workspaces,
                                          const CommandArguments& arguments) {
  return findProject(workspaces, arguments.value("--project").value_or("."));
}

std::string asJson(const Known& known) {
  const auto& [workspace, profile] = known;
  const auto summary = profile.summary();
  JsonObject all{{"workspaceID", workspace.id.text()},
                 {"project", workspace.name},
                 {"path", workspace.path},
                 {"summary", summary ? Json(*summary) : Json()},
                 {"block", ProjectContextService::block(profile)}};
  const Json stored = projectContextAsJson(profile);
  if (const JsonObject* fields = stored.asObject()) {
    for (const auto& [key, value] : *fields) all.set(key, value);
  }
  return json::write(all) + "\n";
}

std::string decisionsOf(const ProjectContextProfile& profile, const TerminalStyle& style) {
  std::string text;
  for (const auto& each : profile.decisions) {
    text += fmt::format("  {}: {} {}\n", onOneLine(each.title), onOneLine(each.detail),
                        style.dim(iso8601(each.createdAt).substr(0, 10)));
  }
  return text;
}

std::string sourcesOf(const ProjectContextProfile& profile, const TerminalStyle& style) {
  std::string text;
  for (const auto& each : profile.discoveredSources) {
    text += fmt::format("  {} {}\n", onOneLine(each.path),
                        style.dim(cutTo(onOneLine(each.summary), 60)));
  }
  return text;
}

std::string everythingOf(const Known& known, const TerminalStyle& style) {
  const auto& profile = known.profile;
  std::string text =
      fmt::format("{}  {}\n{}\n", style.bold(onOneLine(known.workspace.name)),
                  onOneLine(withTilde(known.workspace.path)),
                  profile.summary().value_or("Nothing is known. To tell agents something: vantrell "
                                             "context instructions \"...\""));
  const auto section = [&](std::string_view heading, std::string_view body) {
    if (!body.empty()) text += fmt::format("\n{}\n{}", style.bold(heading), body);
  };
  if (!profile.instructions.empty()) {
    section("Instructions", sanitized(profile.instructions) + "\n");
  }
  std::string pins;
  for (const auto& each : profile.pinnedFiles) pins += fmt::format("  {}\n", onOneLine(each));
  section("Pinned files", pins);
  section("Decisions", decisionsOf(profile, style));
  section("Guidance in the project", sourcesOf(profile, style));
  return text;
}

/// As it is, for a pipe; made fit for a terminal where it goes to one.
std::string forReading(const std::string& text) {
  if (text.empty()) return text;
  return (terminal::isTerminal(STDOUT_FILENO) ? sanitized(text) : text) + "\n";
}

int look(const CommandArguments& arguments, const Environment& environment,
         std::string (*part)(const Known&, const TerminalStyle&)) {
  return withStateView([&](const StateView& state) -> std::expected<int, UsageError> {
    const auto id = projectIn(state.workspaces, arguments);
    if (!id) return std::unexpected(id.error());
    OrchestrationStore store(UserFolders{}.orOwn().support, Date::current, complain);
    const Workspace& workspace = workspaceOf(state.workspaces, *id);
    const Known known(workspace, loadStoredProjectContext(store, *id, state.now));
    StandardOutput out;
    out.write(arguments.has("--json")
                  ? asJson(known)
                  : asTyped(part(known, TerminalStyle::of(STDOUT_FILENO, environment))));
    return out.finish(exitStatus::completed);
  });
}

/// Changes the project's context and tells the sentence, unless it could not be stored.
int change(const CommandArguments& arguments,
           const std::function<std::expected<std::string, UsageError>(ProjectContextService&,
                                                                      const Workspace&)>& work) {
  return changeTasks([&](ChangeContext& context) -> std::expected<int, UsageError> {
    const auto id = projectIn(context.workspaces(), arguments);
    if (!id) return std::unexpected(id.error());
    ProjectContextService& desk = *context.model.context;
    const Workspace& workspace = workspaceOf(context.workspaces(), *id);
    const auto sentence = work(desk, workspace);
    if (!sentence) return std::unexpected(sentence.error());
    if (!desk.saveFailure().empty()) {
      complain(
          fmt::format("The change could not be saved: {}. Free some space or make the folder "
                      "writable, then do it again.",
                      desk.saveFailure()));
      return exitStatus::failed;
    }
    context.out.write(arguments.has("--json") ? asJson(Known(workspace, desk.profile(*id)))
                                              : *sentence + "\n");
    return exitStatus::completed;
  });
}

int setInstructions(const CommandArguments& arguments, std::string_view given) {
  const std::string text =
      text::repaired(given == "-" ? terminal::readStandardInput() : std::string(given));
  return change(arguments,
                [&](ProjectContextService& desk,
                    const Workspace& workspace) -> std::expected<std::string, UsageError> {
                  desk.setProjectInstructions(text, workspace.id);
                  const std::string kept = desk.projectInstructions(workspace.id);
                  if (kept != text::trimmed(text)) {
                    return usageError(
                        "General has no instructions: they belong to a project. Name one with "
                        "--project.");
                  }
                  return fmt::format("{}: {}", onOneLine(workspace.name),
                                     kept.empty() ? "there are no instructions now."
                                                  : "the instructions are set.");
                });
}

int addDecision(const CommandArguments& arguments) {
  const std::string title = text::repaired(arguments.words[2]);
  const std::string detail = text::repaired(arguments.words[3]);
  if (text::trimmed(title).empty() || text::trimmed(detail).empty()) {
    return refuse({"A decision has a title and a text; one of them is empty."});
  }
  return change(arguments,
                [&](ProjectContextService& desk,
                    const Workspace& workspace) -> std::expected<std::string, UsageError> {
                  desk.addProjectDecision(title, detail, workspace.id);
                  return fmt::format("{}: decision {} is kept.", onOneLine(workspace.name),
                                     desk.profile(workspace.id).decisions.size());
                });
}

int run(const CommandArguments& arguments, const Environment& environment) {
  const auto& words = arguments.words;
  const auto is = [&](std::string_view name, std::size_t count) {
    return words.size() == count && words[0] == name;
  };
  if (words.empty()) return look(arguments, environment, everythingOf);
  if (is("instructions", 1)) {
    return look(arguments, environment, [](const Known& known, const TerminalStyle&) {
      return forReading(known.profile.instructions);
    });
  }
  if (is("decisions", 1)) {
    return look(arguments, environment, [](const Known& known, const TerminalStyle& style) {
      return decisionsOf(known.profile, style);
    });
  }
  if (is("sources", 1)) {
    return look(arguments, environment, [](const Known& known, const TerminalStyle& style) {
      return sourcesOf(known.profile, style);
    });
  }
  if (is("block", 1)) {
    return look(arguments, environment, [](const Known& known, const TerminalStyle&) {
      return forReading(ProjectContextService::block(known.profile));
    });
  }
  if (is("clear", 1)) return setInstructions(arguments, "");
  if (is("instructions", 2)) return setInstructions(arguments, words[1]);
  if (is("decisions", 4) && words[1] == "add") return addDecision(arguments);
  static constexpr std::string_view known[] = {"instructions", "clear", "decisions", "sources",
                                               "block"};
  return refuse(
      {fmt::format("\"context {}\" is nothing to do.{} \"vantrell context --help\" lists "
                   "what there is.",
                   words[0], suggestion(words[0], known))});
}

}  // namespace

const Command contextCommand{
    .name = "context",
    .parameters = "[instructions [TEXT] | clear | decisions [add TITLE TEXT] | sources | block]",
    .summary = "what every agent is told about a project",
    .options = options,
    .mostWords = 4,
    .introduction =
        "Without words: all that is known about the project. It stands in front of every\n"
        "prompt, so that all agents keep to the same standing orders.",
    .closing =
        "instructions TEXT sets the standing instructions (- reads them from standard input),\n"
        "clear removes them. decisions add keeps a decision; the last 20 are told. sources are\n"
        "the files of the project that guide agents, such as AGENTS.md: they are read, never\n"
        "changed. block is what an agent gets, word by word; at most 18,000 characters of it.\n"
        "\n"
        "Exit status: 0 done, 1 failed, 2 wrong usage.\n"
        "\n"
        "Examples:\n"
        "  vantrell context instructions \"Write tests first. Never touch vendor/.\"\n"
        "  vantrell context decisions add \"Database\" \"SQLite, one file for each user\"\n"
        "  vantrell context block --project website",
    .run = run,
};

}  // namespace vantrell::shell
