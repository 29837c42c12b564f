#include "runtimes/catalog/runtime_information.h"

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "runtimes/catalog/runtime_locator.h"

namespace vantrell {

namespace {

/// How each runtime is asked whether it is signed in.
struct SignInQuestion {
  AgentProvider provider;
  std::vector<std::string> arguments;
  std::optional<bool> (*reading)(const RuntimeAnswer&);
};

const SignInQuestion* signInQuestionOf(AgentProvider provider) {
  static const SignInQuestion questions[] = {
      {AgentProvider::codex, {"login", "status"}, codexSignedIn},
      {AgentProvider::claude, {"auth", "status"}, claudeSignedIn},
  };
  const auto found = std::ranges::find(questions, provider, &SignInQuestion::provider);
  return found == std::end(questions) ? nullptr : found;
}

/// Not a project's folder, which could tell the program what to load.
std::string neutralFolder() {
  std::string home = files::homeFolder();
  return files::isFolder(home) ? home : "/";
}

constexpr std::string_view defaultMark = " (default)";

std::string withoutDefaultMark(std::string_view text) {
  std::string plain(text);
  for (auto at = plain.find(defaultMark); at != std::string::npos; at = plain.find(defaultMark)) {
    plain.erase(at, defaultMark.size());
  }
  return plain;
}

std::vector<ProviderEffortOption> grokEfforts() {
  std::vector<ProviderEffortOption> efforts{ProviderEffortOption::defaultOption()};
  for (const auto* id : {"low", "medium", "high"}) {
    efforts.push_back(ProviderEffortOption::named(id, ""));
  }
  return efforts;
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
               const auto* question = signInQuestionOf(provider);
               const auto strong = weak.lock();
               if (!question || !strong) return completion(std::move(inspection));
               runRuntime(*strong, provider, executable, question->arguments, informationLimit,
                          [question, inspection, completion](const RuntimeAnswer& status) mutable {
                            inspection.signedIn = question->reading(status);
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

std::optional<bool> codexSignedIn(const RuntimeAnswer& answer) {
  if (answer.status == 0) return true;
  const std::string words = text::lowercased(answer.text);
  if (words.contains("not logged in")) return false;
  if (words.contains("logged in") || words.contains("authenticated")) return true;
  if (words.contains("login") || words.contains("authentication")) return false;
  return std::nullopt;
}

std::optional<bool> claudeSignedIn(const RuntimeAnswer& answer) {
  if (answer.status == 0) return true;
  const std::string words = text::lowercased(answer.text);
  if (words.contains("loggedin\":true")) return true;
  if (words.contains("not logged") || words.contains("loggedin\":false")) return false;
  if (words.contains("logged in")) return true;
  if (answer.status == 1) return false;
  return std::nullopt;
}

std::vector<ProviderModelOption> grokModelsIn(std::string_view output) {
  const auto efforts = grokEfforts();
  std::vector<ProviderModelOption> options{ProviderModelOption::defaultOption(efforts)};
  for (const auto whole : text::lines(output)) {
    const std::string_view line = text::trimmed(whole);
    if (!line.starts_with('*') && !line.starts_with('-')) continue;
    const std::string_view item = text::trimmed(line.substr(1));
    const bool isDefault = item.contains(defaultMark);
    const std::string plain = withoutDefaultMark(item);
    std::string id(text::trimmed(plain));
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
