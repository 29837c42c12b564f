#include "shell/terminal/webhook_setting.h"

#include <cstdio>
#include <fmt/format.h>
#include <unistd.h>

#include "platform/terminal/terminal.h"
#include "platform/text/text.h"
#include "runtimes/tasklet/tasklet_webhook.h"
#include "shell/terminal/command.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/with_app.h"

namespace vantrell::shell {

namespace {

/// Absent when nothing was given.
std::optional<std::string> readAddress() {
  if (!terminal::isTerminal(STDIN_FILENO)) return terminal::readLine(STDIN_FILENO);
  std::fputs("Address of the webhook (it is not shown): ", stderr);
  auto line = terminal::readHiddenLine(STDIN_FILENO);
  std::fputs("\n", stderr);
  return line;
}

int store(const std::string& address, std::string_view done) {
  return withApp({}, [&](RunLoop& loop, VantrellApp& app) {
    std::optional<bool> isSaved;
    bool isRunning = false;
    app.model().setup.configureTaskletWebhookURL(address, [&](bool saved) {
      isSaved = saved;
      if (isRunning) loop.quit();
    });
    isRunning = true;
    if (!isSaved) loop.run();
    if (!*isSaved) {
      complain(
          fmt::format("{} {}", TaskletWebhook::saveFailure, app.services().webhook()->problem()));
      return exitStatus::failed;
    }
    tell(done);
    return exitStatus::completed;
  });
}

}  // namespace

std::expected<std::string, std::string> webhookState(const UserFolders& folders) {
  const auto stored = folders.secretStore()->read(std::string(TaskletConfiguration::secretService),
                                                  std::string(TaskletConfiguration::secretAccount));
  if (!stored) return std::unexpected(stored.error().description);
  if (!*stored) return "not set";
  if (text::isValidUtf8(**stored) && TaskletConfiguration::validatedWebhookURL(**stored)) {
    return "set";
  }
  return "set, but no HTTPS address";
}

int setWebhook() {
  const auto given = readAddress();
  const std::string address(text::trimmed(given.value_or("")));
  if (address.empty()) {
    return refuse(
        {"No address was given. Nothing was changed. To forget the webhook: vantrell "
         "settings reset tasklet-webhook"});
  }
  if (!TaskletConfiguration::validatedWebhookURL(address)) {
    return refuse({"That is no address that begins with https://. Nothing was changed."});
  }
  return store(address, "tasklet-webhook is set now.\n");
}

int forgetWebhook() {
  return store("", "tasklet-webhook is not set any more.\n");
}

}  // namespace vantrell::shell
