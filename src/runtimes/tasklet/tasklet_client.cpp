#include "runtimes/tasklet/tasklet_client.h"

#include <fmt/format.h>

#include "platform/queues/weakly.h"
#include "platform/text/text.h"
#include "platform/values/date.h"
#include "platform/values/uuid.h"

namespace vantrell {

namespace {

/// How much of a refusal's body is shown, in bytes.
constexpr std::size_t longestExcerpt = 4096;

AgentError stopped() {
  return AgentError::disconnection("This hand-over was stopped.");
}

}  // namespace

std::shared_ptr<TaskletClient> TaskletClient::make(Url webhookURL, std::string workspaceName,
                                                   MainQueue& main, HttpClient& http,
                                                   TaskletLimits limits) {
  return std::shared_ptr<TaskletClient>(
      new TaskletClient(std::move(webhookURL), std::move(workspaceName), main, http, limits));
}

TaskletClient::TaskletClient(Url webhookURL, std::string workspaceName, MainQueue& main,
                             HttpClient& http, TaskletLimits limits)
    : webhookURL_(std::move(webhookURL)),
      workspaceName_(std::move(workspaceName)),
      main_(main),
      http_(http),
      limits_(limits),
      sessionID_(Uuid::random().text()) {}

TaskletClient::~TaskletClient() {
  stop();
}

void TaskletClient::start(std::optional<std::string> existingSessionID,
                          StartCompletion completion) {
  if (existingSessionID && !existingSessionID->empty()) sessionID_ = std::move(*existingSessionID);
  main_.post([completion = std::move(completion), sessionID = sessionID_] {
    if (completion) completion(AgentStartResult{sessionID, false});
  });
}

void TaskletClient::sendPrompt(std::string prompt, PromptCompletion completion) {
  if (isStopped_) {
    main_.post([completion = std::move(completion)] {
      if (completion) completion(std::unexpected(stopped()));
    });
    return;
  }
  // Before anything of the answer: that arrives through the same queue.
  main_.post(weakly(this, [](TaskletClient& self) {
    self.report({{"sessionUpdate", "tool_call"},
                 {"toolCallId", "tasklet-dispatch-" + self.sessionID_},
                 {"title", "Dispatching to Tasklet"},
                 {"status", "in_progress"},
                 {"rawInput", JsonObject{{"workspace", self.workspaceName_}}}});
  }));
  transfer_ = http_.send(
      handover(prompt), [weak = weak_from_this(), completion = std::move(completion)](auto result) {
        const auto self = weak.lock();
        auto conclusion = self ? self->conclude(std::move(result)) : std::unexpected(stopped());
        if (completion) completion(std::move(conclusion));
      });
}

HttpRequest TaskletClient::handover(const std::string& prompt) const {
  const JsonObject body{{"event", "vantrell.task.requested"},
                        {"source", "vantrell"},
                        {"session_id", sessionID_},
                        {"workspace", workspaceName_},
                        {"prompt", prompt},
                        {"requested_at", iso8601(main_.now())}};
  return {.method = "POST",
          .url = webhookURL_.text(),
          .headers = {{"Content-Type", "application/json"}, {"User-Agent", "vantrell"}},
          .body = json::write(body),
          .requestTimeout = limits_.request,
          .resourceTimeout = limits_.resource,
          // A prompt goes nowhere but to the address that the user gave; and a redirect that turns
          // the POST into a GET would be taken for a hand-over that never was.
          .redirects = HttpRequest::Redirects::refuse,
          .longestBody = longestExcerpt,
          .excess = HttpRequest::Excess::drop};
}

void TaskletClient::report(const JsonObject& update) {
  if (onSessionUpdate) onSessionUpdate(update);
}

void TaskletClient::reportEnd(std::string_view title, std::string_view status) {
  report({{"sessionUpdate", "tool_call_update"},
          {"toolCallId", "tasklet-dispatch-" + sessionID_},
          {"title", title},
          {"status", status}});
}

std::expected<JsonObject, AgentError> TaskletClient::conclude(
    std::expected<HttpResponse, HttpError> result) {
  if (!result) {
    reportEnd("Tasklet handoff failed", "failed");
    const std::string& words = result.error().description;
    return std::unexpected(isStopped_ ? AgentError::disconnection(words)
                                      : AgentError::transport(words));
  }
  if (!result->isSuccess()) {
    reportEnd("Tasklet handoff rejected", "failed");
    const bool isText = !result->body.empty() && text::isValidUtf8(result->body);
    // Classified, so that no word of a server can pass for a used-up allowance.
    return std::unexpected(AgentError(
        AgentRuntimeError{AgentProvider::tasklet, AgentRuntimeError::Kind::protocolError,
                          fmt::format("Tasklet webhook returned HTTP {}: {}", result->status,
                                      isText ? result->body : "No response body")}));
  }
  reportEnd("Tasklet handoff accepted", "completed");
  report({{"sessionUpdate", "agent_message_chunk"},
          {"messageId", fmt::format("tasklet-{}-{}", sessionID_, Uuid::random().text())},
          {"content", JsonObject{{"text",
                                  "Tasklet accepted this background task. Track its workflow and "
                                  "results in Tasklet."}}}});
  return JsonObject{{"accepted", true}, {"status", result->status}};
}

void TaskletClient::cancel() {
  if (transfer_) transfer_->cancel();
}

void TaskletClient::stop() {
  isStopped_ = true;
  cancel();
  transfer_.reset();
}

}  // namespace vantrell
