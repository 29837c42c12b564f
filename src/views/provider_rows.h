// What is known of each provider and what is left to do before it can work. Pure functions of what
// was found on this machine; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/providers/runtime_install_status.h"
#include "records/values/agent_provider.h"
#include "runtimes/local/local_runtime.h"

namespace vantrell::views {

struct NextStep {
  enum class Kind { nothing, install, logIn, logInPerhaps, setUp, tryIt };
  Kind kind = Kind::nothing;
  std::string command;  // to type; empty where there is none
  std::string words;    // one line for people
};
constexpr auto rawTexts(NextStep::Kind) {
  return std::to_array<std::string_view>(
      {"ready", "install", "login", "login_if_needed", "set_up", "try"});
}

/// All that a row is made of.
struct ProviderFacts {
  AgentProvider provider = AgentProvider::grok;
  RuntimeInstallStatus status;  // of its program
  /// A path that the user has set and that cannot be executed.
  std::optional<std::string> unusableCustomPath{};
  std::string glmModel{};  // that OpenCode is to use
  // Of the local provider:
  LocalRuntimeStatus local = LocalRuntimeStatus::checking();
  bool hasHarness = false;  // Grok Build is installed
  LocalRuntimeKind localKind = LocalRuntimeKind::automatic;
  std::string localURL{};  // that is set
  // Of Tasklet:
  bool hasWebhook = false;
  std::string webhookProblem{};
};
NextStep nextStep(const ProviderFacts& facts);

/// Which sign the row bears.
enum class ProviderMark {
  ready,      // ✓ as far as is known
  toDo,       // ! something is left to do
  uncertain,  // ? its program did not answer, or failed
  absent      // ○
};
std::string_view sign(ProviderMark mark);

struct ProviderRow {
  AgentProvider provider = AgentProvider::grok;
  std::string_view label;
  ProviderMark mark = ProviderMark::absent;
  bool isThere = false;
  std::string version, signIn;       // "-" for one without a program
  std::string place;                 // the program, the server's address, or that there is none
  std::vector<std::string> remarks;  // a line each; the next step is the last
  NextStep step;
};
ProviderRow providerRow(const ProviderFacts& facts);

/// A provider as a person writes it: its id or the name of its program ("glm" or "opencode");
/// nullopt for any other word.
std::optional<AgentProvider> providerNamed(std::string_view word);
/// All words that providerNamed() knows.
std::vector<std::string_view> providerWords();

}  // namespace vantrell::views
