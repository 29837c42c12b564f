// What the connectors of providers stand on beside programs: HTTP, the detected local runtime, the
// webhook in the secret store. Main queue.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "platform/http/http_client.h"
#include "records/values/agent_provider.h"
#include "runtimes/local/local_runtime_detector.h"
#include "runtimes/tasklet/tasklet_webhook.h"

namespace vantrell {

class SecretQueue;
class UserDefaults;

class ProviderServices {
 public:
  /// What is given must outlive it.
  ProviderServices(MainQueue& main, const UserDefaults& defaults, SecretQueue& secrets);

  HttpClient& http() { return http_; }
  LocalRuntimeDetector& localRuntime() const { return *detector_; }
  const std::shared_ptr<TaskletWebhook>& webhook() const { return webhook_; }

  /// Finds out what must be known before the provider can be used: whether a model server answers,
  /// which webhook is stored. Replies on the main queue, at once where there is nothing to ask.
  void prepare(AgentProvider provider, std::function<void()> ready);
  /// Whether there is nothing to ask.
  bool isKnown(AgentProvider provider) const;
  /// A detection of the local runtime has begun or ended. Unset: nobody wants to know.
  std::function<void()> onLocalRuntimeChanged;

 private:
  HttpClient http_;
  const std::shared_ptr<LocalRuntimeDetector> detector_;
  const std::shared_ptr<TaskletWebhook> webhook_;
  bool webhookIsKnown_ = false;
  std::vector<std::function<void()>> waiting_;  // for the end of a detection
};

}  // namespace vantrell
