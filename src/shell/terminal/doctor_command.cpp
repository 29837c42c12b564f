// `vantrell doctor`: what stands between the user and working tasks.
#include <fmt/format.h>

#include "doctor/doctor.h"
#include "engine/core/workspace_tree.h"
#include "shell/terminal/command_context.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

struct Sign {
  std::string_view text;
  TerminalStyle::Look look;
};
// In the order of DiagnosticStatus.
constexpr Sign signs[] = {
    {"…", look::dim}, {"✓", look::green}, {"!", look::yellow}, {"✗", look::red}};

std::string words(const CommandContext& context, const DiagnosticReport& report) {
  std::string all;
  for (const auto& check : report.checks) {
    const auto& sign = signs[static_cast<std::size_t>(check.status)];
    all += fmt::format("{} {}: {}\n", (context.style().*sign.look)(sign.text),
                       context.style().bold(onOneLine(check.title)), onOneLine(check.detail));
    if (check.remediation && check.status != DiagnosticStatus::passed) {
      all += fmt::format("    {}\n", onOneLine(*check.remediation));
    }
  }
  return all;
}

constexpr std::string_view repairName = "--repair";

void diagnose(CommandContext& context) {
  context.open({}, [&](VantrellApp& app) {
    const auto& workspaces = app.model().tree().workspaces();
    const auto project = context.givenProject(workspaces);
    if (!project) return context.misused(project.error());
    const auto folder = *project ? workspaceOf(workspaces, **project).path : context.caller.folder;
    const auto tell = context.whileAlive([&context](const DiagnosticReport& report) {
      const auto told =
          context.report(json::writePrettySorted(Json(asJson(report))), words(context, report));
      context.finish(told && !report.isHealthy() ? Outcome(exitStatus::failed) : told);
    });
    context.console.status("Looking at the project, the agents and the connections ...");
    if (context.arguments.has(repairName)) {
      app.doctor().repairCommonIssues(folder, tell);
    } else {
      app.doctor().runConnectionDoctor(folder, tell);
    }
  });
}

constexpr CommandOption options[] = {
    {"--project", "PROJECT", "the project to look at (default: the current folder)"},
    {repairName, "", "first refresh what may be out of date, and start the remote host again"},
    wholeJsonOption,
};

constexpr Command commands[] = {
    {.name = "doctor",
     .summary = "find out what keeps tasks from working, and what to do about it",
     .options = options,
     .begin = diagnose,
     .introduction =
         "Looks at the project's folder, the agents' programs, remote control, the hosts of the\n"
         "fleet and the places of updates, one after the other. ✓ is well, ! may be as you want\n"
         "it, ✗ needs you. Changes nothing without --repair.",
     .closing = "It ends with status 1 if a check failed."},
};

}  // namespace

std::span<const Command> doctorCommands() {
  return commands;
}

}  // namespace vantrell::shell
