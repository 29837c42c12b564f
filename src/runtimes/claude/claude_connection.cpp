#include "runtimes/claude/claude_connection.h"

#include "platform/text/text.h"
#include "platform/values/json_objects.h"
#include "platform/values/uuid.h"
#include "runtimes/claude/claude_messages.h"

namespace vantrell {

// ---- start --------------------------------------------------------------------------------------

ProcessOptions ClaudeConnection::processOptions(
    const std::optional<std::string>& existingSessionID) {
  sessionID_ = existingSessionID.value_or(text::lowercased(Uuid::random().text()));
  return {.executable = configuration_.executable,
          .arguments =
              claude::processArguments(configuration_, sessionID_, existingSessionID.has_value()),
          .environment = configuration_.processEnvironment,
          .workingFolder = configuration_.workspacePath};
}

void ClaudeConnection::begin(std::optional<std::string> existingSessionID) {
  AgentStartResult session{existingSessionID.value_or(sessionID_), existingSessionID.has_value()};
  sessionID_ = session.sessionId;
  requestControl({{"subtype", "initialize"}, {"hooks", nullptr}},
                 [this, session](const PendingRequests::Answer& answer) {
                   if (!answer) return finishStart(std::unexpected(answer.error()));
                   auto models = claude::modelOptions(*answer);
                   if (!models.empty()) tell(&AgentClient::onModelOptionsUpdate, std::move(models));
                   finishStart(session);
                 });
}

void ClaudeConnection::requestControl(JsonObject request, PendingRequests::Completion completion) {
  const auto number = controlRequests_.add(std::move(completion));
  send({{"type", "control_request"},
        {"request_id", claude::controlRequestID(number)},
        {"request", std::move(request)}});
}

// ---- turns --------------------------------------------------------------------------------------

void ClaudeConnection::sendPrompt(std::string prompt, AgentClient::PromptCompletion completion) {
  if (state_ != State::open) {
    return completion(std::unexpected(notConnected()));
  }
  if (promptCompletion_) {
    return completion(std::unexpected(AgentError("Claude Code is already handling a prompt.")));
  }
  promptCompletion_ = std::move(completion);
  isPromptCancelled_ = false;
  // The prompt waits behind a turn of Claude Code's own, whose words are still to come.
  if (!isTurnRunning_) turn_.beginTurn();
  isTurnRunning_ = true;
  send({{"type", "user"},
        {"message", JsonObject{{"role", "user"}, {"content", std::move(prompt)}}},
        {"parent_tool_use_id", nullptr},
        {"session_id", sessionID_}});
}

void ClaudeConnection::cancel() {
  if (state_ != State::open) return;
  isPromptCancelled_ = promptCompletion_ != nullptr;
  interrupt();
  allQuestionsEnded();
  for (const JsonObject& denial : permissions_.denyAll()) send(denial);
}

void ClaudeConnection::interrupt() {
  // The "result" of the turn tells what came of it.
  requestControl({{"subtype", "interrupt"}}, [](const auto&) {});
}

void ClaudeConnection::respondToPermission(std::int64_t requestID, std::string optionID) {
  auto next = permissions_.answer(requestID, optionID);
  if (!next) return;
  if (auto* question = std::get_if<PermissionRequest>(&*next)) {
    ask(std::move(*question), 0);
  } else {
    send(std::get<JsonObject>(*next));
  }
  questionEnded(requestID);
}

void ClaudeConnection::failPending(const AgentError& error) {
  handOutUpdates();
  const auto prompt = std::exchange(promptCompletion_, nullptr);
  controlRequests_.failAll(error);
  if (prompt) prompt(std::unexpected(error));
}

// ---- messages -----------------------------------------------------------------------------------

void ClaudeConnection::handle(JsonObject message, std::size_t bytes) {
  const std::string type = json::textOr(message, "type", "");
  if (type == "stream_event") {
    gather(turn_.streamEvent(message), bytes);
  } else if (type == "assistant") {
    gather(turn_.assistantMessage(message), bytes);
  } else if (type == "user") {
    gather(turn_.userMessage(message), bytes);
  } else if (type == "system") {
    handleSystem(message, bytes);
  } else if (type == "control_response") {
    handleControlResponse(message);
  } else if (type == "control_request") {
    handleControlRequest(message, bytes);
  } else if (type == "control_cancel_request") {
    const auto withdrawn = permissions_.withdraw(json::textOr(message, "request_id", ""));
    if (withdrawn) questionWithdrawn(*withdrawn);
  } else if (type == "result") {
    handleResult(std::move(message), bytes);
  } else if (type == "rate_limit_event") {
    if (const JsonObject* info = json::object(message, "rate_limit_info")) {
      tell(&AgentClient::onUsageUpdate, claude::usage(*info));
    }
  }
}

void ClaudeConnection::handleOtherLine(std::string_view line) {
  log(text::repaired(line) + "\n");
}

void ClaudeConnection::gather(ClaudeEvents::Updates updates, std::size_t bytes) {
  for (JsonObject& update : updates) {
    gatherUpdate(std::move(update), std::exchange(bytes, 0));
  }
}

void ClaudeConnection::handleSystem(const JsonObject& message, std::size_t bytes) {
  if (json::textOr(message, "subtype", "") != "init") {
    return gather(turn_.systemEvent(message), bytes);
  }
  if (const std::string* session = json::text(message, "session_id")) sessionID_ = *session;
  // Each turn begins so, Claude Code's own ones too.
  isTurnRunning_ = true;
  if (isPromptCancelled_) interrupt();
}

void ClaudeConnection::handleControlResponse(const JsonObject& message) {
  const JsonObject& response = json::objectOrEmpty(message, "response");
  const auto number = claude::numberOfControlRequest(json::textOr(response, "request_id", ""));
  const auto completion = number ? controlRequests_.take(*number) : std::nullopt;
  if (!completion) return;
  handOutUpdates();
  if (json::textOr(response, "subtype", "") == "error") {
    return (*completion)(std::unexpected(
        AgentError(json::textOr(response, "error", "Claude Code rejected a control request."))));
  }
  (*completion)(json::objectOrEmpty(response, "response"));
}

void ClaudeConnection::handleControlRequest(const JsonObject& message, std::size_t bytes) {
  const std::string* id = json::text(message, "request_id");
  const JsonObject* request = json::object(message, "request");
  if (!id || !request) return;
  if (json::textOr(*request, "subtype", "") != "can_use_tool") {
    return send(claude::errorAnswer(*id, "vantrell does not support this Claude control request."));
  }
  // A question that crossed the interrupt on its way: the user has been told that all has stopped.
  if (isPromptCancelled_) return send(claude::denyAnswer(*id));
  // Its own mode keeps most questions away already; a configured rule may still ask. What is no
  // permission only the user can answer.
  if (configuration_.permissionMode == GrokPermissionMode::fullAccess &&
      !ClaudePermissions::isUserQuestion(*request)) {
    return send(claude::allowAnswer(*id, json::objectOrEmpty(*request, "input")));
  }
  ask(permissions_.ask(*id, *request), bytes);
}

void ClaudeConnection::handleResult(JsonObject message, std::size_t bytes) {
  if (const std::string* session = json::text(message, "session_id")) sessionID_ = *session;
  auto failure = claude::failureOf(message);
  gather(turn_.endTurn(failure.has_value()), bytes);

  if (claude::endsTurnOfItsOwn(message)) {
    isTurnRunning_ = promptCompletion_ != nullptr;
    return;
  }
  isTurnRunning_ = false;
  isPromptCancelled_ = false;
  const auto completion = std::exchange(promptCompletion_, nullptr);
  if (!completion) return;
  handOutUpdates();
  if (failure) return completion(std::unexpected(AgentError(std::move(*failure))));
  completion(std::move(message));
}

}  // namespace vantrell
