// The inbound webhook through which Tasklet takes tasks. Its URL is a credential: it is kept as a
// secret, never among the settings. Main queue.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/values/url.h"

namespace vantrell {

class SecretQueue;

namespace TaskletConfiguration {
/// Where the secret store keeps the URL. The service bears the program's earlier name: a webhook
/// that was stored under it stays valid.
inline constexpr const char* secretService = "com.local.Larkmoor.tasklet";
inline constexpr const char* secretAccount = "inbound-webhook";

/// White space around it does not count; absent unless it is an HTTPS URL.
std::optional<Url> validatedWebhookURL(std::string_view text);
}  // namespace TaskletConfiguration

/// The stored webhook, at hand without waiting.
class TaskletWebhook : public std::enable_shared_from_this<TaskletWebhook> {
 public:
  /// The secrets must outlive it.
  static std::shared_ptr<TaskletWebhook> make(SecretQueue& secrets);

  /// Reads what is stored. Until then nothing is configured.
  void load(std::function<void()> completion);
  /// Stores the text; empty text forgets the webhook. A text that is no HTTPS URL is stored all the
  /// same, and then nothing is configured. When it cannot be stored, all stays as it was.
  void save(std::string_view text, std::function<void(bool isSaved)> completion);

  bool isConfigured() const { return url_.has_value(); }
  const std::optional<Url>& url() const { return url_; }
  /// Why the last operation failed, in the secret store's words; empty when it did not.
  const std::string& problem() const { return problem_; }

  /// What the user is told when save() fails.
  static constexpr std::string_view saveFailure = "Could not save the Tasklet webhook in Keychain.";

 private:
  explicit TaskletWebhook(SecretQueue& secrets) : secrets_(secrets) {}

  SecretQueue& secrets_;
  std::optional<Url> url_;
  std::string problem_;
};

}  // namespace vantrell
