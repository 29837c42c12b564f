// What providers need beside the engine: their connectors, the local model server and the Tasklet
// webhook. Tests stand in for it; SystemProviderServices is the program's own. Main queue.
#pragma once

#include <functional>
#include <string>

#include "runtimes/catalog/provider_connectors.h"

namespace vantrell {

class ProviderServices {
 public:
  virtual ~ProviderServices() = default;
  virtual const ProviderConnector& connector(AgentProvider provider) const = 0;

  /// What is known of the local model server. A detection that begins or ends calls onChange.
  virtual LocalRuntimeStatus localRuntimeStatus() const = 0;
  virtual void refreshLocalRuntime() = 0;
  /// Set by the engine; unset at its end.
  std::function<void()> onLocalRuntimeChanged;

  virtual bool isTaskletConfigured() const = 0;
  /// Reads the stored webhook.
  virtual void loadTasklet(std::function<void()> done) = 0;
  /// Stores the webhook as a secret, or forgets it where the text is empty.
  virtual void saveTaskletWebhook(const std::string& text,
                                  std::function<void(bool isSaved)> reply) = 0;

  /// Whether all that decides about the provider is known: whether a model server answers, whether
  /// a webhook is stored. Without a program of its own nothing else can tell.
  virtual bool isKnown(AgentProvider provider) const = 0;
  /// Finds it out; at once where it is known.
  virtual void prepare(AgentProvider provider, std::function<void()> done) = 0;
};

}  // namespace vantrell
