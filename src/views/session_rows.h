// What the controls of a task offer: the providers that could take its next turn, and the models
// and efforts of one of them. Pure functions, any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "records/values/routing.h"
#include "runtimes/local/local_runtime.h"
#include "runtimes/wire/provider_options.h"

namespace vantrell::views {

struct RoutingRow {
  AgentProvider provider = AgentProvider::grok;
  std::string_view label;
  std::string reason;
  std::string allowance;  // empty where nothing is known of it
  bool isReady = false;
  bool isNext = false;  // takes the next turn
};
/// In routing order. `next` is who really takes the turn: one that was chosen may not be there.
std::vector<RoutingRow> routingRows(const RoutingPreview& preview,
                                    std::optional<AgentProvider> next);
/// "The next turn goes to Grok: Preferred by this route."
std::string routingSentence(const RoutingPreview& preview, std::optional<AgentProvider> next);

struct OptionRow {
  std::string id, label, detail;
  std::string efforts;  // of a model: their ids, with blanks between; may be empty
  bool isChosen = false;
};
/// Without a choice the default counts as chosen.
std::vector<OptionRow> modelRows(const std::vector<ProviderModelOption>& models,
                                 const std::optional<std::string>& chosen);
std::vector<OptionRow> effortRows(const std::vector<ProviderEffortOption>& efforts,
                                  const std::optional<std::string>& chosen);
/// Where a list of models comes from, and why it may not be complete; empty where there is nothing
/// to say. `areReported`: by the provider's own runtime.
std::string originOfModels(AgentProvider provider, bool areReported,
                           const LocalRuntimeStatus& local);

}  // namespace vantrell::views
