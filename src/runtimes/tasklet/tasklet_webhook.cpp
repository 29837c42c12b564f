#include "runtimes/tasklet/tasklet_webhook.h"

#include "platform/queues/weakly.h"
#include "platform/text/text.h"

namespace vantrell {

std::optional<Url> TaskletConfiguration::validatedWebhookURL(std::string_view given) {
  auto url = Url::parse(text::trimmed(given));
  return url && url->scheme() == "https" ? url : std::nullopt;
}

std::shared_ptr<TaskletWebhook> TaskletWebhook::make(TaskletSecret secret) {
  return std::shared_ptr<TaskletWebhook>(new TaskletWebhook(std::move(secret)));
}

void TaskletWebhook::load(std::function<void()> completion) {
  secret_.read(weakly(
      this, [completion = std::move(completion)](TaskletWebhook& self, TaskletSecret::Value value) {
        self.problem_ = value ? "" : std::move(value.error());
        self.url_.reset();
        if (value && *value && text::isValidUtf8(**value)) {
          self.url_ = TaskletConfiguration::validatedWebhookURL(**value);
        }
        completion();
      }));
}

void TaskletWebhook::save(std::string_view given, std::function<void(bool)> completion) {
  const std::string trimmed(text::trimmed(given));
  auto answer = weakly(this, [trimmed, completion = std::move(completion)](
                                 TaskletWebhook& self, TaskletSecret::Done done) {
    self.problem_ = done ? "" : std::move(done.error());
    if (done) self.url_ = TaskletConfiguration::validatedWebhookURL(trimmed);
    completion(done.has_value());
  });
  if (trimmed.empty()) {
    secret_.remove(std::move(answer));
  } else {
    secret_.write(trimmed, std::move(answer));
  }
}

}  // namespace vantrell
