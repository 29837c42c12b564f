// What is left to do about a provider before it can work, from what is known of its program. Pure
// functions, any thread.
#pragma once

#include <string>
#include <string_view>

#include "engine/providers/runtime_install_status.h"
#include "records/values/agent_provider.h"
#include "runtimes/local/local_runtime.h"

namespace vantrell::shell {

struct NextStep {
  enum class Kind { nothing, install, logIn, logInPerhaps, setUp, tryIt };
  Kind kind = Kind::nothing;
  std::string command;  // to type; empty where there is none
  std::string words;    // one line for people
};

/// `glmModel` is the one that OpenCode is to use.
NextStep nextStep(AgentProvider provider, const RuntimeInstallStatus& status,
                  std::string_view glmModel);

/// Of the providers without a program of their own: what a model server or the webhook lacks.
NextStep nextStepOfLocal(const LocalRuntimeStatus& status, bool hasHarness);
NextStep nextStepOfTasklet(bool isConfigured);

/// One sign: ✓ can be used, as far as is known; ! something is left to do; ? it did not answer
/// or failed; ○ it is not there.
std::string_view mark(const RuntimeInstallStatus& status, const NextStep& step);

}  // namespace vantrell::shell
