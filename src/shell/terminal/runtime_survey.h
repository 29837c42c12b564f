// The desk of the runtimes' programs for a command that only looks at them, or signs in: without
// the rest of the program, without its lock, and changing nothing that is stored. Main thread.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "app/runtime_means.h"
#include "engine/changes.h"
#include "platform/dispatch.h"
#include "platform/process.h"
#include "platform/program_runner.h"
#include "platform/run_loop.h"
#include "platform/user_defaults.h"
#include "shell/terminal/next_step.h"

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
  NextStep nextStep(AgentProvider provider) const;

 private:
  void waitForAnswers();

  RunLoop loop_;
  const std::unique_ptr<UserDefaults> defaults_;
  BackgroundPool pool_;
  const std::shared_ptr<ProgramRunner> runner_;
  const RuntimeMeans means_;
  Changes changes_;
  const std::shared_ptr<RuntimeDesk> desk_;
};

}  // namespace vantrell::shell
