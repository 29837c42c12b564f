// The desk of the runtimes' programs for a command that only looks at them, or signs in: without
// the rest of the program, without its lock, and changing nothing that is stored. Main thread.
#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "app/provider_services.h"
#include "app/runtime_means.h"
#include "engine/core/changes.h"
#include "platform/process/process.h"
#include "platform/process/program_runner.h"
#include "platform/queues/dispatch.h"
#include "platform/queues/run_loop.h"
#include "platform/secrets/secret_queue.h"
#include "platform/storage/user_defaults.h"
#include "runtimes/catalog/provider_connectors.h"
#include "runtimes/wire/agent_error.h"
#include "runtimes/wire/provider_usage.h"
#include "views/provider_rows.h"

namespace vantrell::shell {

class RuntimeSurvey {
 public:
  RuntimeSurvey();

  /// Asks every program about itself and waits for the answers. What takes longer than a moment is
  /// shown on standard error while it lasts, where that is a terminal.
  void askAll(const Environment& environment);
  /// The same for one.
  void ask(AgentProvider provider);
  /// Looks for the program, also where the login shell would; waits for that shell at most, once.
  std::optional<std::string> find(AgentProvider provider);

  const RuntimeInstallStatus& status(AgentProvider provider) const {
    return desk_->status(provider);
  }
  /// A path that the user has set and that is no program.
  std::optional<std::string> unusableCustomPath(AgentProvider provider) const;
  /// All that a row about it is made of.
  views::ProviderFacts facts(AgentProvider provider) const;

  /// What was found of a model server and of the webhook by askAll() or askModels().
  const LocalRuntimeStatus& localRuntime() const { return services_.localRuntime().status(); }
  const TaskletWebhook& webhook() const { return *services_.webhook(); }
  const UserDefaults& defaults() const { return *defaults_; }

  struct Models {
    std::vector<ProviderModelOption> options;
    std::optional<ProviderUsage> usage;  // where the program tells it along with its models
    bool areReported = false;            // by the runtime itself; else they are what is built in
  };
  /// Asks the provider's runtime for its models, where it can tell, and waits for the answer.
  Models askModels(AgentProvider provider);
  /// Spends a reset credit of Codex and waits for the outcome.
  std::expected<std::string, AgentError> resetCodexUsage();

 private:
  /// Runs the loop until everything that was asked has answered.
  void waitForAnswers();
  bool isWaiting() const { return !waitsFor_.empty() || desk_->isAsking(); }
  /// For a question that is no program's: names it for who waits, and gives what its answer calls.
  std::function<void()> question(std::string name);
  void askServices();

  RunLoop loop_;
  const std::unique_ptr<UserDefaults> defaults_;
  BackgroundPool pool_;
  const std::shared_ptr<ProgramRunner> runner_;
  const RuntimeMeans means_;
  Changes changes_;
  const std::shared_ptr<InstalledRuntimes> desk_;
  SecretQueue secrets_;
  ProviderServices services_;
  const ProviderConnectorRegistry connectors_;
  std::multiset<std::string> waitsFor_;
  bool isRunning_ = false;  // the loop
};

}  // namespace vantrell::shell
