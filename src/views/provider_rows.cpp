#include "views/provider_rows.h"

#include <fmt/format.h>

#include "platform/text/visible_text.h"
#include "runtimes/catalog/locators.h"
#include "runtimes/catalog/provider_registry.h"
#include "runtimes/catalog/runtime_information.h"
#include "runtimes/catalog/runtime_locator.h"
#include "runtimes/catalog/runtime_login.h"
#include "views/task_rows.h"

namespace vantrell::views {

namespace {

using Kind = NextStep::Kind;

NextStep stepOfInstalled(AgentProvider provider, const RuntimeInstallStatus& status) {
  const std::string logIn = fmt::format("vantrell login {}", rawText(provider));
  if (status.signedIn == false) return {Kind::logIn, logIn, fmt::format("sign in: {}", logIn)};
  if (status.hasRunOut || status.hasFailed) {
    const std::string command = shellQuoted(status.path) + " --version";
    const std::string what = status.hasRunOut ? fmt::format("it did not answer within {} seconds",
                                                            informationLimit.count())
                                              : "it failed when it was asked for its version";
    return {Kind::tryIt, command, fmt::format("{}; see what it says: {}", what, command)};
  }
  if (!status.signedIn) {
    return {Kind::logInPerhaps, logIn, fmt::format("ready, if it is signed in; else: {}", logIn)};
  }
  return {Kind::nothing, "", "ready"};
}

NextStep stepOfLocal(const ProviderFacts& facts, std::string_view hint) {
  const auto& status = facts.local;
  if (!status.connection()) {
    const std::string reason = status.reason() ? *status.reason() + " " : "";
    return {Kind::setUp, "", reason + std::string(hint)};
  }
  if (facts.hasHarness) return {Kind::nothing, "", fmt::format("ready: {}", status.label())};
  const std::string command(installCommand(AgentProvider::grok));
  return {Kind::install, command,
          fmt::format("{}; install Grok Build as the tool harness: {}", status.label(), command)};
}

NextStep stepOfTasklet(bool hasWebhook, std::string_view hint) {
  if (hasWebhook) return {Kind::nothing, "", "ready: a webhook is set"};
  const std::string command = "vantrell settings set tasklet-webhook";
  return {Kind::setUp, command, fmt::format("{} Type: {}", hint, command)};
}

ProviderMark markOf(const RuntimeInstallStatus& status, Kind step) {
  // A provider without a program is ready by what is set up for it.
  if (!status.isInstalled()) {
    return step == Kind::nothing ? ProviderMark::ready : ProviderMark::absent;
  }
  switch (step) {
    case Kind::tryIt: return ProviderMark::uncertain;
    case Kind::logIn:
    case Kind::setUp: return ProviderMark::toDo;
    default: return ProviderMark::ready;
  }
}

std::string shownPath(const std::string& path) {
  return text::onOneLine(withTilde(path));
}

void setProgram(ProviderRow& row, const RuntimeInstallStatus& status) {
  if (!status.isInstalled()) return;
  row.version =
      status.version
          ? text::onOneLine(std::string_view(*status.version).substr(0, status.version->find('\n')))
      : status.hasRunOut ? "no answer"
      : status.hasFailed ? "failed"
                         : "not known";
  row.signIn = !status.signedIn ? "not known" : *status.signedIn ? "signed in" : "not signed in";
  row.place = shownPath(status.path);
}

/// Of one without a program: where its work goes, and what the user has set for it.
void setService(ProviderRow& row, const ProviderFacts& facts) {
  row.isThere = row.step.kind == Kind::nothing;
  row.place = "no program of its own";
  if (facts.provider == AgentProvider::tasklet) {
    if (!facts.webhookProblem.empty()) row.remarks.push_back(text::onOneLine(facts.webhookProblem));
    return;
  }
  if (const auto* found = facts.local.connection()) row.place = found->baseURL.text();
  row.remarks.push_back(
      fmt::format("set: {}{}", displayName(facts.localKind),
                  facts.localURL.empty() ? "" : " at " + text::onOneLine(facts.localURL)));
}

}  // namespace

NextStep nextStep(const ProviderFacts& facts) {
  const auto provider = facts.provider;
  const std::string hint(ProviderRegistry::setupHint(provider));
  if (provider == AgentProvider::local) return stepOfLocal(facts, hint);
  if (provider == AgentProvider::tasklet) return stepOfTasklet(facts.hasWebhook, hint);
  if (!facts.status.isInstalled()) {
    const std::string command(installCommand(provider));
    return {Kind::install, command, fmt::format("install it: {}", command)};
  }
  auto step = stepOfInstalled(provider, facts.status);
  const bool isUsable = step.kind == Kind::nothing || step.kind == Kind::logInPerhaps;
  if (isUsable && provider == AgentProvider::glm && !OpenCodeLocator::isPlanModel(facts.glmModel)) {
    return {Kind::setUp, "", hint};
  }
  return step;
}

std::string_view sign(ProviderMark mark) {
  constexpr std::string_view signs[] = {"✓", "!", "?", "○"};
  return signs[static_cast<std::size_t>(mark)];
}

ProviderRow providerRow(const ProviderFacts& facts) {
  ProviderRow row{.provider = facts.provider,
                  .label = ProviderRegistry::descriptor(facts.provider).label,
                  .isThere = facts.status.isInstalled(),
                  .version = "-",
                  .signIn = "-",
                  .place = "not found",
                  .step = nextStep(facts)};
  row.mark = markOf(facts.status, row.step.kind);
  if (facts.unusableCustomPath) {
    row.remarks.push_back(fmt::format("the path that is set for it cannot be executed: {}",
                                      shownPath(*facts.unusableCustomPath)));
  }
  if (loginFlow(facts.provider)) {
    setProgram(row, facts.status);
  } else {
    setService(row, facts);
  }
  row.remarks.push_back(text::onOneLine(row.step.words));
  return row;
}

std::optional<AgentProvider> providerNamed(std::string_view word) {
  for (const auto provider : allAgentProviders) {
    if (word == rawText(provider)) return provider;
    if (loginFlow(provider) && word == programName(provider)) return provider;
  }
  return std::nullopt;
}

std::vector<std::string_view> providerWords() {
  std::vector<std::string_view> words;
  for (const auto provider : allAgentProviders) {
    words.push_back(rawText(provider));
    if (loginFlow(provider)) words.push_back(programName(provider));
  }
  return words;
}

}  // namespace vantrell::views
