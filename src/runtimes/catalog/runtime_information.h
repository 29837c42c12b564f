// What a runtime's program says about itself when it is run for a moment: its version, whether it
// is signed in, its models. The words of each vendor are read here and nowhere else.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/process/program_runner.h"
#include "runtimes/catalog/provider_table.h"
#include "runtimes/wire/provider_options.h"

namespace vantrell {

/// A program that says nothing must not keep anybody waiting for its version.
inline constexpr std::chrono::seconds informationLimit{15};

/// The text is trimmed; the status is -1 when the program was not started, or did not end in time.
struct RuntimeAnswer {
  std::string text;
  int status = -1;
  bool hasRunOut = false;  // of time
};

/// Runs the provider's program in the environment of its runtime, without input, with standard
/// output and standard error as one text. Main queue, where the completion arrives too; without a
/// limit it may take as long as a person needs.
void runRuntime(ProgramRunner& runner, AgentProvider provider, const std::string& executable,
                std::vector<std::string> arguments, std::optional<Duration> limit,
                std::function<void(RuntimeAnswer)> completion);

struct RuntimeInspection {
  std::optional<std::string> version;
  std::optional<bool> signedIn;  // absent when not known, or when the runtime has no word for it
  bool hasRunOut = false;        // some question was not answered in time
  bool hasFailed = false;        // the question for the version ended in an error
};
/// Asks for the version and, where the runtime can tell, whether it is signed in. Each question has
/// the limit above. Main queue.
void inspectRuntime(ProgramRunner& runner, AgentProvider provider, const std::string& executable,
                    std::function<void(RuntimeInspection)> completion);

/// The models that the Grok program lists; the default option alone when it cannot be run.
void askGrokModels(ProgramRunner& runner, const std::string& executable,
                   std::function<void(std::vector<ProviderModelOption>)> completion);

// How answers are read. Pure functions, any thread.

std::optional<std::string> versionIn(const RuntimeAnswer& answer);
std::optional<bool> signedIn(const ProviderProgram::SignInQuestion& question,
                             const RuntimeAnswer& answer);
/// The default option and the models that the Grok program lists.
std::vector<ProviderModelOption> grokModelsIn(std::string_view output);

}  // namespace vantrell
