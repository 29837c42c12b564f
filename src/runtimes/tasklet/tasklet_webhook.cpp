#include "runtimes/tasklet/tasklet_webhook.h"

#include "platform/queues/weakly.h"
#include "platform/secrets/secret_queue.h"
#include "platform/text/text.h"

namespace vantrell {

std::optional<Url> TaskletConfiguration::validatedWebhookURL(std::string_view given) {
  auto url = Url::parse(text::trimmed(given));
  return url && url->scheme() == "https" ? url : std::nullopt;
}

std::shared_ptr<TaskletWebhook> TaskletWebhook::make(SecretQueue& secrets) {
  return std::shared_ptr<TaskletWebhook>(new TaskletWebhook(secrets));
}

void TaskletWebhook::load(std::function<void()> completion) {
  using TaskletConfiguration::secretAccount, TaskletConfiguration::secretService;
  secrets_.read(
      secretService, secretAccount,
      weakly(this, [completion = std::move(completion)](TaskletWebhook& self, auto value) {
        self.problem_ = value ? "" : std::move(value.error().description);
        self.url_.reset();
        if (value && *value && text::isValidUtf8(**value)) {
          self.url_ = TaskletConfiguration::validatedWebhookURL(**value);
        }
        completion();
      }));
}

void TaskletWebhook::save(std::string_view given, std::function<void(bool)> completion) {
  using TaskletConfiguration::secretAccount, TaskletConfiguration::secretService;
  const std::string trimmed(text::trimmed(given));
  auto answer =
      weakly(this, [trimmed, completion = std::move(completion)](TaskletWebhook& self, auto done) {
        self.problem_ = done ? "" : std::move(done.error().description);
        if (done) self.url_ = TaskletConfiguration::validatedWebhookURL(trimmed);
        completion(done.has_value());
      });
  if (trimmed.empty()) {
    secrets_.remove(secretService, secretAccount, std::move(answer));
  } else {
    secrets_.write(secretService, secretAccount, trimmed, std::move(answer));
  }
}

}  // namespace vantrell
