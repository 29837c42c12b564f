// Hands prompts to a Tasklet workflow in the cloud. A turn is one HTTPS POST to the webhook, and is
// over when that has accepted it: the work goes on elsewhere, and no result comes back here.
//
// Nothing is kept between the turns but the session id, by which the workflow can tell which
// prompts belong together. Main queue.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/http/http_client.h"
#include "platform/queues/dispatch.h"
#include "platform/values/url.h"
#include "runtimes/wire/agent_client.h"

namespace vantrell {

struct TaskletLimits {
  std::chrono::milliseconds request{20'000};   // without a byte
  std::chrono::milliseconds resource{30'000};  // of the whole hand-over
};

class TaskletClient final : public AgentClient, public std::enable_shared_from_this<TaskletClient> {
 public:
  /// The queue and the HTTP client must outlive it.
  static std::shared_ptr<TaskletClient> make(Url webhookURL, std::string workspaceName,
                                             MainQueue& main, HttpClient& http,
                                             TaskletLimits limits = {});
  /// stop().
  ~TaskletClient() override;

  AgentProvider provider() const override { return AgentProvider::tasklet; }
  /// Takes over the id or keeps a new one; nothing is sent.
  void start(std::optional<std::string> existingSessionID, StartCompletion completion) override;
  void sendPrompt(std::string prompt, PromptCompletion completion) override;
  void cancel() override;
  /// It never asks.
  void respondToPermission(std::int64_t, std::string) override {}
  void stop() override;

 private:
  TaskletClient(Url webhookURL, std::string workspaceName, MainQueue& main, HttpClient& http,
                TaskletLimits limits);
  HttpRequest handover(const std::string& prompt) const;
  void report(const JsonObject& update);
  void reportEnd(std::string_view title, std::string_view status);
  std::expected<JsonObject, AgentError> conclude(std::expected<HttpResponse, HttpError> result);

  const Url webhookURL_;
  const std::string workspaceName_;
  MainQueue& main_;
  HttpClient& http_;
  const TaskletLimits limits_;
  std::string sessionID_;
  std::shared_ptr<HttpTransfer> transfer_;  // the latest
  bool isStopped_ = false;
};

}  // namespace vantrell
