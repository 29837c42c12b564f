#include "runtimes/catalog/runtime_information.h"

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "runtimes/catalog/runtime_locator.h"

namespace vantrell {

namespace {

/// Not a project's folder, which could tell the program what to load.
std::string neutralFolder() {
  std::string home = files::homeFolder();
  return files::isFolder(home) ? home : "/";
}

}  // namespace

void runRuntime(ProgramRunner& runner, AgentProvider provider, const std::string& executable,
                std::vector<std::string> arguments, std::optional<Duration> limit,
                std::function<void(RuntimeAnswer)> completion) {
  const bool isForAPerson = !limit;
  runner.run({.options =
                  [=] {
                    ProcessOptions options;
                    options.executable = executable;
                    options.arguments = arguments;
                    options.environment = runtimeEnvironment(provider);
                    options.workingFolder = neutralFolder();
                    options.mergeErrorIntoOutput = true;
                    // A browser that a log-in has opened must not end with it.
                    options.endGroupWithLeader = !isForAPerson;
                    return options;
                  },
              .limit = limit,
              .input = std::nullopt},
             [completion = std::move(completion)](const ProgramRunner::Outcome& outcome) {
               const std::string output = text::repaired(outcome.output);
               completion({std::string(text::trimmed(output)), outcome.status, outcome.hasRunOut});
             });
}

void inspectRuntime(ProgramRunner& runner, AgentProvider provider, const std::string& executable,
                    std::function<void(RuntimeInspection)> completion) {
  runRuntime(runner, provider, executable, {"--version"}, informationLimit,
             [weak = runner.weak_from_this(), provider, executable,
              completion = std::move(completion)](const RuntimeAnswer& answer) {
               RuntimeInspection inspection{.version = versionIn(answer),
                                            .signedIn = {},
                                            .hasRunOut = answer.hasRunOut,
                                            .hasFailed = answer.status != 0 && !answer.hasRunOut};
               const auto* program = programOf(provider);
               const auto* question = program && program->signIn ? &*program->signIn : nullptr;
               const auto strong = weak.lock();
               if (!question || !strong) return completion(std::move(inspection));
               runRuntime(*strong, provider, executable, question->arguments, informationLimit,
                          [question, inspection, completion](const RuntimeAnswer& status) mutable {
                            inspection.signedIn = signedIn(*question, status);
                            inspection.hasRunOut = inspection.hasRunOut || status.hasRunOut;
                            completion(std::move(inspection));
                          });
             });
}

std::optional<std::string> versionIn(const RuntimeAnswer& answer) {
  // What a program says when it fails is no version.
  if (answer.status != 0 || answer.text.empty()) return std::nullopt;
  return answer.text;
}

std::optional<bool> signedIn(const ProviderProgram::SignInQuestion& question,
                             const RuntimeAnswer& answer) {
  if (answer.status == 0) return true;
  const std::string output = text::lowercased(answer.text);
  for (const auto& [words, isYes] : question.words) {
    if (output.contains(words)) return isYes;
  }
  if (answer.status == question.signedOutStatus) return false;
  return std::nullopt;
}

void askGrokModels(ProgramRunner& runner, const std::string& executable,
                   std::function<void(std::vector<ProviderModelOption>)> completion) {
  runRuntime(runner, AgentProvider::grok, executable, {"models"}, informationLimit,
             [completion = std::move(completion)](const RuntimeAnswer& answer) {
               completion(grokModelsIn(answer.status < 0 ? "" : answer.text));
             });
}

std::vector<ProviderModelOption> grokModelsIn(std::string_view output) {
  const auto efforts =
      ProviderEffortOption::list(providerFacts(AgentProvider::grok).models.efforts);
  std::vector<ProviderModelOption> options{ProviderModelOption::defaultOption(efforts)};
  for (const auto whole : text::lines(output)) {
    const std::string_view line = text::trimmed(whole);
    if (!line.starts_with('*') && !line.starts_with('-')) continue;
    std::string_view item = text::trimmed(line.substr(1));
    const auto mark = item.find(" (default)");
    const bool isDefault = mark != std::string_view::npos;
    const std::string id(text::trimmed(item.substr(0, mark)));
    if (!id.starts_with("grok-")) continue;
    options.push_back(
        {.id = id,
         .label = id,
         .detail = isDefault ? "Recommended by Grok." : "Available through this Grok subscription.",
         .isDefault = isDefault,
         .efforts = efforts});
  }
  return options;
}

}  // namespace vantrell
