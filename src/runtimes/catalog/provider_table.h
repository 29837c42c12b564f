// All that is known of each provider and is data: one row each. What differs between providers
// stands here; only how a client is made is code (provider_connectors.cpp). Immutable; any thread.
#pragma once

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "records/values/agent_provider.h"
#include "records/values/raw_text.h"
#include "records/values/task_modes.h"

namespace vantrell {

enum class ProviderCategory { subscription, local, cloud };
constexpr auto rawTexts(ProviderCategory) {
  return std::to_array<std::string_view>({"subscription", "local", "cloud"});
}

/// Where the work is done.
enum class ProviderExecutionLocation { thisMac, localNetwork, cloud };
constexpr auto rawTexts(ProviderExecutionLocation) {
  return std::to_array<std::string_view>({"this_mac", "local_network", "cloud"});
}

/// Who pays for a turn, and how. No provider of the table is `meteredAPI`; the guard against
/// metered billing covers connectors that are marked so.
enum class ProviderBillingMode { subscription, localCompute, externalPlan, meteredAPI };
constexpr auto rawTexts(ProviderBillingMode) {
  return std::to_array<std::string_view>(
      {"subscription", "local_compute", "external_plan", "metered_api"});
}

struct ProviderCapabilities {
  bool chat = false;
  bool tools = false;
  bool images = false;
  bool reasoningEffort = false;
  bool usageReporting = false;
  bool manualUsageReset = false;  // the user may spend a credit on a fresh allowance
  bool resumableSessions = false;
  bool backgroundExecution = false;

  bool operator==(const ProviderCapabilities&) const = default;
};

struct ProviderDescriptor {
  AgentProvider id = AgentProvider::grok;
  std::string label;
  std::string shortLabel;   // for tight places and status lines
  std::string systemImage;  // name of its icon
  ProviderCategory category = ProviderCategory::subscription;
  ProviderExecutionLocation executionLocation = ProviderExecutionLocation::thisMac;
  ProviderBillingMode billingMode = ProviderBillingMode::subscription;
  ProviderCapabilities capabilities;
  std::string summary;  // one sentence

  bool operator==(const ProviderDescriptor&) const = default;
};

/// How the user signs in: the program's own flow, which is the vendor's business.
struct RuntimeLoginFlow {
  std::vector<std::string> arguments;
  bool wantsTerminal = false;  // it asks questions; the others open a browser
  std::string_view failure;    // what the user is told when it fails
  bool saysWhy = false;        // the program's own words are shown instead
};

/// The program of a provider's runtime: where it is, what it runs in, what it is asked.
struct ProviderProgram {
  using Texts = std::vector<std::string_view>;

  std::string_view name;
  Texts candidates;              // places to look, in order; "~" is the home folder
  Texts pathEntries;             // put before PATH
  std::string_view missingPath;  // what a missing PATH counts as
  Texts removed;                 // variables that would lead to metered billing
  std::vector<std::pair<std::string_view, std::string_view>> set;
  std::string_view customPathKey;   // in the user defaults
  std::string_view installCommand;  // the vendor's own, for the user to run
  RuntimeLoginFlow login;

  /// How it is asked whether it is signed in. Exit status 0 means yes; else the first of `words`
  /// that the lowercased output contains decides.
  struct SignInQuestion {
    std::vector<std::string> arguments;
    std::vector<std::pair<std::string_view, bool>> words;
    std::optional<int> signedOutStatus;  // an exit status that means no, when no word decides
  };
  std::optional<SignInQuestion> signIn;  // absent: it cannot tell
};

/// What a provider offers before its runtime has been asked.
struct ProviderModelRules {
  struct Model {
    std::string_view id, label, detail;
    bool isDefault = false;
  };
  /// The model that the user may set in the user defaults.
  struct Configured {
    std::string_view key;
    std::string_view usual;           // when nothing is set
    std::string_view requiredPrefix;  // of the lowercased model; others may be billed per use
    std::string_view detail;          // in the list of models; empty: not listed
  };
  bool offersDefault = true;  // the runtime's own choice, as the first option
  std::vector<std::string_view> efforts;
  std::vector<Model> models;
  std::optional<Configured> configured;
  bool canBeAsked = false;  // its program tells its models without a task
};

struct ProviderFacts {
  ProviderDescriptor descriptor;
  std::string_view setupHint;  // what to do when no client can be made
  /// The sentence under the choice of a permission mode, in the order of GrokPermissionMode.
  std::array<std::string_view, rawTexts(GrokPermissionMode{}).size()> permissionTexts{};
  std::string_view signInAdvice;           // when a failure speaks of signing in
  std::string_view failureAdvice;          // for every failure instead of its words; mostly empty
  std::optional<ProviderProgram> program;  // absent: it has none of its own
  std::optional<AgentProvider> programOf;  // whose program does the work then
  ProviderModelRules models;
  /// Its stored sessions keep the folder in which they began, whatever folder they are resumed in.
  bool sessionsAreBoundToFolder = false;
};

const ProviderFacts& providerFacts(AgentProvider provider);
/// The program that does the provider's work: local models are reached through Grok's. Null for
/// Tasklet.
const ProviderProgram* programOf(AgentProvider provider);

}  // namespace vantrell
