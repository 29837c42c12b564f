#include "shell/terminal/next_step.h"

#include <fmt/format.h>

#include "runtimes/catalog/locators.h"
#include "runtimes/catalog/provider_registry.h"
#include "runtimes/catalog/runtime_information.h"
#include "runtimes/catalog/runtime_locator.h"
#include "runtimes/catalog/runtime_login.h"
#include "shell/terminal/run_preparation.h"

namespace vantrell::shell {

namespace {

NextStep stepOfAnInstalledOne(AgentProvider provider, const RuntimeInstallStatus& status) {
  const std::string logIn = fmt::format("vantrell login {}", rawText(provider));
  if (status.signedIn == false) {
    return {NextStep::Kind::logIn, logIn, fmt::format("sign in: {}", logIn)};
  }
  if (status.hasRunOut || status.hasFailed) {
    const std::string command = shellQuoted(status.path) + " --version";
    const std::string what = status.hasRunOut ? fmt::format("it did not answer within {} seconds",
                                                            informationLimit.count())
                                              : "it failed when it was asked for its version";
    return {NextStep::Kind::tryIt, command, fmt::format("{}; see what it says: {}", what, command)};
  }
  if (!status.signedIn) {
    return {NextStep::Kind::logInPerhaps, logIn,
            fmt::format("ready, if it is signed in; else: {}", logIn)};
  }
  return {NextStep::Kind::nothing, "", "ready"};
}

}  // namespace

NextStep nextStep(AgentProvider provider, const RuntimeInstallStatus& status,
                  std::string_view glmModel) {
  const std::string hint(ProviderRegistry::setupHint(provider));
  if (!loginFlow(provider)) return {NextStep::Kind::setUp, "", hint};
  if (!status.isInstalled()) {
    const std::string command(installCommand(provider));
    return {NextStep::Kind::install, command, fmt::format("install it: {}", command)};
  }
  auto step = stepOfAnInstalledOne(provider, status);
  if (step.kind == NextStep::Kind::logIn || step.kind == NextStep::Kind::tryIt) return step;
  if (provider == AgentProvider::glm && !OpenCodeLocator::isPlanModel(glmModel)) {
    return {NextStep::Kind::setUp, "", hint};
  }
  return step;
}

NextStep nextStepOfLocal(const LocalRuntimeStatus& status, bool hasHarness) {
  if (!status.connection()) {
    const std::string reason = status.reason() ? *status.reason() + " " : "";
    return {NextStep::Kind::setUp, "",
            reason + std::string(ProviderRegistry::setupHint(AgentProvider::local))};
  }
  if (hasHarness) return {NextStep::Kind::nothing, "", fmt::format("ready: {}", status.label())};
  const std::string command(installCommand(AgentProvider::grok));
  return {NextStep::Kind::install, command,
          fmt::format("{}; install Grok Build as the tool harness: {}", status.label(), command)};
}

NextStep nextStepOfTasklet(bool isConfigured) {
  if (isConfigured) return {NextStep::Kind::nothing, "", "ready: a webhook is set"};
  const std::string command = "vantrell settings set tasklet-webhook";
  return {NextStep::Kind::setUp, command,
          fmt::format("{} Type: {}", ProviderRegistry::setupHint(AgentProvider::tasklet), command)};
}

std::string_view mark(const RuntimeInstallStatus& status, const NextStep& step) {
  // A provider without a program is ready by what is set up for it.
  if (!status.isInstalled()) return step.kind == NextStep::Kind::nothing ? "✓" : "○";
  switch (step.kind) {
    case NextStep::Kind::tryIt: return "?";
    case NextStep::Kind::logIn:
    case NextStep::Kind::setUp: return "!";
    default: return "✓";
  }
}

}  // namespace vantrell::shell
