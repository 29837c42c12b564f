// What is known of the runtimes' programs, for a command that only looks at them, or signs in:
// without the rest of the program, without its lock, and changing nothing that is stored. Main
// queue; callbacks come within the call where there is nothing to wait for, and none comes after
// the survey is gone.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/core/changes.h"
#include "engine/providers/installed_runtimes.h"
#include "engine/providers/system_provider_services.h"
#include "platform/secrets/secret_queue.h"
#include "runtimes/wire/agent_error.h"
#include "runtimes/wire/provider_usage.h"
#include "views/provider_rows.h"

namespace vantrell {

class RuntimeSurvey : public std::enable_shared_from_this<RuntimeSurvey> {
 public:
  /// Both must outlive it; the pool must rest before it is destroyed. `hasUsersPath`: this process
  /// was started in a terminal, with the PATH of the user's shell.
  RuntimeSurvey(MainQueue& main, BackgroundPool& pool, bool hasUsersPath);

  /// Why the settings could not be read, so that the paths in them are not used; a sentence.
  const std::optional<std::string>& problem() const { return problem_; }

  /// Asks every program about itself, and looks for model servers and the webhook.
  void askAll(std::function<void()> then);
  /// Asks one program.
  void ask(AgentProvider provider, std::function<void()> then);
  /// Looks for the program, also where the login shell would.
  void find(AgentProvider provider, std::function<void(std::optional<std::string>)> then);

  /// All that a row about it is made of.
  views::ProviderFacts facts(AgentProvider provider) const;

  struct Models {
    std::vector<ProviderModelOption> options;
    std::optional<ProviderUsage> usage;  // where the program tells it along with its models
    bool areReported = false;            // by the runtime itself; else they are what is built in
  };
  /// Asks the provider's runtime for its models, if it can tell.
  void askModels(AgentProvider provider, std::function<void(Models)> then);
  /// Spends a reset credit of Codex.
  void resetCodexUsage(std::function<void(std::expected<std::string, AgentError>)> then);

 private:
  void whenAnswered(std::function<void()> then);
  void addKnownModels(AgentProvider provider, Models& models);

  MainQueue& main_;
  BackgroundPool& pool_;
  const bool hasUsersPath_;
  std::optional<std::string> problem_;
  const std::unique_ptr<UserDefaults> defaults_;
  const RuntimePrograms programs_;
  Changes changes_;
  const std::shared_ptr<InstalledRuntimes> runtimes_;
  SecretQueue secrets_;
  SystemProviderServices services_;
  std::function<void()> answered_;  // waits for the programs
  Changes::Observation observation_;
};

}  // namespace vantrell
