// The models that runtimes have reported of themselves, kept in "provider-models.json": they are
// offered after a restart, until the runtime reports again. Main queue.
#pragma once

#include <map>
#include <vector>

#include "platform/queues/dispatch.h"
#include "records/values/agent_provider.h"
#include "runtimes/wire/provider_options.h"

namespace vantrell {

class OrchestrationStore;

class ReportedModels {
 public:
  using Options = std::vector<ProviderModelOption>;

  /// Writes on `writer`; without one, at once. What is given must outlive it.
  ReportedModels(OrchestrationStore& store, Executor* writer) : store_(store), writer_(writer) {}

  void load();
  /// Null where nothing was reported.
  const Options* find(AgentProvider provider) const;
  /// A report that names no model is not kept, nor one of the local server, which is asked again.
  void keep(AgentProvider provider, const Options& options);
  void forget(AgentProvider provider);

 private:
  void save();

  OrchestrationStore& store_;
  Executor* const writer_;
  std::map<AgentProvider, Options> options_;
};

}  // namespace vantrell
