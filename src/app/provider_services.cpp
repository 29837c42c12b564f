#include "app/provider_services.h"

#include "platform/secrets/secret_queue.h"

namespace vantrell {

namespace {

/// The one secret of Tasklet, with errors as sentences.
TaskletSecret taskletSecret(SecretQueue& secrets) {
  const std::string service(TaskletConfiguration::secretService);
  const std::string account(TaskletConfiguration::secretAccount);
  const auto told = []<typename T>(SecretStore::Result<T> result) -> std::expected<T, std::string> {
    if (!result) return std::unexpected(std::move(result.error().description));
    if constexpr (std::is_void_v<T>) {
      return {};
    } else {
      return *std::move(result);
    }
  };
  return {.read =
              [&secrets, service, account, told](auto answer) {
                secrets.read(service, account,
                             [told, answer = std::move(answer)](auto result) mutable {
                               answer(told(std::move(result)));
                             });
              },
          .write =
              [&secrets, service, account, told](std::string value, auto answer) {
                secrets.write(service, account, std::move(value),
                              [told, answer = std::move(answer)](auto result) mutable {
                                answer(told(std::move(result)));
                              });
              },
          .remove =
              [&secrets, service, account, told](auto answer) {
                secrets.remove(service, account,
                               [told, answer = std::move(answer)](auto result) mutable {
                                 answer(told(std::move(result)));
                               });
              }};
}

}  // namespace

ProviderServices::ProviderServices(MainQueue& main, const UserDefaults& defaults,
                                   SecretQueue& secrets)
    : http_(main),
      detector_(LocalRuntimeDetector::make(defaults, http_)),
      webhook_(TaskletWebhook::make(taskletSecret(secrets))) {
  detector_->onChange = [this] {
    if (onLocalRuntimeChanged) onLocalRuntimeChanged();
    if (detector_->status().isChecking()) return;
    for (const auto& ready : std::exchange(waiting_, {})) ready();
  };
}

bool ProviderServices::isKnown(AgentProvider provider) const {
  if (provider == AgentProvider::tasklet) return webhookIsKnown_ || webhook_->isConfigured();
  return provider != AgentProvider::local || !detector_->status().isChecking();
}

void ProviderServices::prepare(AgentProvider provider, std::function<void()> ready) {
  if (isKnown(provider)) return ready();
  if (provider == AgentProvider::tasklet) {
    return webhook_->load([this, ready = std::move(ready)] {
      webhookIsKnown_ = true;
      ready();
    });
  }
  waiting_.push_back(std::move(ready));
  detector_->refresh();
}

}  // namespace vantrell
