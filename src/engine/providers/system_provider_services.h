// The connectors with what they work on: HTTP, the detected local runtime, the webhook in the
// secret store. Main queue.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/providers/provider_services.h"
#include "platform/http/http_client.h"
#include "platform/queues/dispatch.h"
#include "runtimes/local/local_runtime_detector.h"
#include "runtimes/tasklet/tasklet_webhook.h"

namespace vantrell {

class SecretQueue;
class UserDefaults;

class SystemProviderServices : public ProviderServices {
 public:
  struct Dependencies {
    MainQueue& main;
    BackgroundPool& pool;
    const UserDefaults& defaults;
    SecretQueue& secrets;
  };
  /// What is given must outlive it.
  explicit SystemProviderServices(Dependencies dependencies);

  HttpClient& http() { return http_; }
  const TaskletWebhook& webhook() const { return *webhook_; }

  const ProviderConnector& connector(AgentProvider provider) const override;
  LocalRuntimeStatus localRuntimeStatus() const override { return detector_->status(); }
  void refreshLocalRuntime() override { detector_->refresh(); }
  bool isTaskletConfigured() const override { return webhook_->isConfigured(); }
  void loadTasklet(std::function<void()> done) override;
  void saveTaskletWebhook(const std::string& text,
                          std::function<void(bool isSaved)> reply) override;
  bool isKnown(AgentProvider provider) const override;
  void prepare(AgentProvider provider, std::function<void()> done) override;

 private:
  HttpClient http_;
  const std::shared_ptr<LocalRuntimeDetector> detector_;
  const std::shared_ptr<TaskletWebhook> webhook_;
  bool webhookIsKnown_ = false;
  ProviderConnectorRegistry connectors_;
  std::vector<std::function<void()>> waiting_;  // for the end of a detection
};

}  // namespace vantrell
