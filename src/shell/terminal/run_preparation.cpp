#include "shell/terminal/run_preparation.h"

#include <fmt/format.h>

#include "platform/files/files.h"
#include "platform/terminal/terminal.h"
#include "platform/text/text.h"
#include "views/attachments.h"

namespace vantrell::shell {

namespace {

constexpr std::string_view practiceVariable = "VANTRELL_PRACTICE_AGENT";

std::string absolute(std::string_view path) {
  return files::standardized(files::expandingTilde(path));
}

}  // namespace

std::expected<std::string, UsageError> findProgram(std::string_view name,
                                                   const Environment& environment) {
  if (name.find('/') != std::string_view::npos || name.starts_with('~')) {
    std::string path = absolute(name);
    if (files::isExecutable(path)) return path;
    return usageError(
        fmt::format("{} is no program that can be started. Give --executable the path of "
                    "the runtime's program.",
                    path));
  }
  const auto folders = environment.find("PATH");
  if (folders != environment.end()) {
    for (const auto folder : text::split(folders->second, ':')) {
      std::string path = absolute(fmt::format("{}/{}", folder.empty() ? "." : folder, name));
      if (files::isExecutable(path)) return path;
    }
  }
  return usageError(
      fmt::format("There is no program {} in PATH. Give --executable a path, as in "
                  "--executable ./{}.",
                  name, name));
}

std::string practiceAgentPath(const Environment& environment) {
  const auto named = environment.find(practiceVariable);
  if (named != environment.end() && !named->second.empty()) return absolute(named->second);
  return terminal::programFolder() + "/vantrell-practice-agent";
}

std::expected<RunPlan, UsageError> prepareRun(RunArguments arguments,
                                              const Environment& environment) {
  RunPlan plan;
  plan.folder = absolute(arguments.project.value_or("."));
  if (!arguments.task && !files::isFolder(plan.folder)) {
    return usageError(
        fmt::format("There is no folder {}. Give --project an existing one.", plan.folder));
  }
  for (const auto& path : arguments.attachments) {
    auto attachment = views::attachmentFor(absolute(path));
    if (!attachment) return usageError(attachment.error() + " Check --attach.");
    plan.attachments.push_back(*std::move(attachment));
  }
  std::optional<std::string> executable;
  if (arguments.executable) {
    auto found = findProgram(*arguments.executable, environment);
    if (!found) return std::unexpected(std::move(found.error()));
    executable = *std::move(found);
  }
  if (arguments.practice) {
    plan.practiceAgent = executable.value_or(practiceAgentPath(environment));
    if (!files::isExecutable(*plan.practiceAgent)) {
      return usageError(
          fmt::format("The practice agent is missing: {}. Build it with ./run, or say where "
                      "it is with {}.",
                      *plan.practiceAgent, practiceVariable));
    }
  } else {
    plan.executable = std::move(executable);
  }
  if (!arguments.takesPrompt) {
    plan.arguments = std::move(arguments);
    return plan;
  }
  plan.promptWasRead = arguments.prompt == "-";
  if (plan.promptWasRead) arguments.prompt = terminal::readStandardInput();
  arguments.prompt = text::repaired(arguments.prompt);
  if (text::trimmed(arguments.prompt).empty()) {
    return usageError(
        "The prompt is empty. Say what should be done, as in vantrell run \"explain this "
        "project\".");
  }
  plan.arguments = std::move(arguments);
  return plan;
}

}  // namespace vantrell::shell
