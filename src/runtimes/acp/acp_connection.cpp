#include "runtimes/acp/acp_connection.h"

#include <fmt/format.h>

#include "runtimes/acp/acp_host_services.h"
#include "runtimes/acp/acp_messages.h"
#include "runtimes/wire/json_rpc.h"

namespace vantrell {

ACPConnection::ACPConnection(ACPConfiguration configuration, SerialQueue queue,
                             std::shared_ptr<Mailbox> mailbox, AgentEvents events,
                             std::unique_ptr<ACPHostServices> host)
    : JsonRpcConnection(std::move(queue), std::move(mailbox), std::move(events)),
      configuration_(std::move(configuration)),
      host_(std::move(host)) {}

ACPConnection::~ACPConnection() = default;

// ---- start --------------------------------------------------------------------------------------

void ACPConnection::start(std::optional<std::string> existingSessionID,
                          AgentClient::StartCompletion completion) {
  if (state_ != State::unused) return completion(std::unexpected(ACPClientError::disconnected()));
  if (auto error = launchRuntime()) return completion(std::unexpected(std::move(*error)));
  initialize(std::move(existingSessionID), std::move(completion));
}

std::optional<AgentError> ACPConnection::launchRuntime() {
  ProcessOptions options;
  options.executable = configuration_.executable;
  options.arguments = configuration_.processArguments;
  options.environment = configuration_.processEnvironment;
  options.workingFolder = configuration_.workspacePath;
  return launch(std::move(options), ACPClientError::executableMissing(configuration_.runtimeName));
}

void ACPConnection::initialize(std::optional<std::string> existingSessionID,
                               AgentClient::StartCompletion completion) {
  state_ = State::open;
  request("initialize", acp::initializeParams(),
          [this, existingSessionID = std::move(existingSessionID),
           completion = std::move(completion)](Answer answer) {
            if (!answer) return completion(std::unexpected(answer.error()));
            publishModelOptions(*answer);
            const JsonObject* capabilities = json::object(*answer, "agentCapabilities");
            const bool canLoadSessions =
                capabilities && json::boolean(*capabilities, "loadSession").value_or(false);
            supportsConfigOptions_ = hasConfigOptions();
            if (existingSessionID && canLoadSessions) {
              loadSession(*existingSessionID, completion);
            } else {
              newSession(completion);
            }
          });
}

void ACPConnection::loadSession(std::string sessionId, AgentClient::StartCompletion completion) {
  sessionId_ = sessionId;
  if (events_.replayStarted) events_.replayStarted();
  // Until the answer comes the runtime plays the history back as ordinary updates.
  request("session/load", acp::loadSessionParams(configuration_, sessionId),
          [this, sessionId, completion = std::move(completion)](Answer answer) {
            if (!answer) {
              if (events_.replayFailed) events_.replayFailed();
              return newSession(completion);
            }
            publishModelOptions(*answer);
            applyRuntimeConfiguration({sessionId, true}, completion);
          });
}

void ACPConnection::newSession(AgentClient::StartCompletion completion) {
  request("session/new", acp::newSessionParams(configuration_),
          [this, completion = std::move(completion)](Answer answer) {
            if (!answer) return completion(std::unexpected(answer.error()));
            publishModelOptions(*answer);
            const std::string* sessionId = json::text(*answer, "sessionId");
            if (!sessionId) {
              return completion(std::unexpected(ACPClientError::invalidResponse(
                  fmt::format("{} did not return a session ID.", configuration_.runtimeName))));
            }
            sessionId_ = *sessionId;
            applyRuntimeConfiguration({*sessionId, false}, completion);
          });
}

void ACPConnection::applyRuntimeConfiguration(AgentStartResult result,
                                              AgentClient::StartCompletion completion) {
  if (!supportsConfigOptions_) return completion(std::move(result));
  if (configuration_.provider != AgentProvider::kimi) {
    return applyModel(std::move(result), std::move(completion));
  }
  applyMode(acp::modeOption(configuration_.permissionMode), std::move(result),
            std::move(completion));
}

void ACPConnection::applyMode(std::string_view mode, AgentStartResult result,
                              AgentClient::StartCompletion completion) {
  auto params = acp::configOptionParams(result.sessionId, "mode", std::string(mode));
  request("session/set_config_option", std::move(params),
          [this, mode, result = std::move(result),
           completion = std::move(completion)](const Answer& answer) mutable {
            if (answer) return applyModel(std::move(result), std::move(completion));
            // Kimi Code 2 has no mode "manual"; its own word for one that asks is "default". A
            // session that ran with full access keeps that mode when it is opened again.
            if (mode == acp::modeOption(GrokPermissionMode::ask)) {
              return applyMode(acp::ownModeThatAsks, std::move(result), std::move(completion));
            }
            // The runtime still works, but under rules that nobody has chosen here.
            result.notice = fmt::format(
                "{} did not take the permission mode that is set ({}). It works under its own "
                "rules{}.",
                configuration_.runtimeName, answer.error().localizedDescription(),
                mode == acp::ownModeThatAsks ? ", and may act without asking" : "");
            if (events_.log) events_.log(*result.notice + "\n");
            applyModel(std::move(result), std::move(completion));
          });
}

void ACPConnection::applyModel(AgentStartResult result, AgentClient::StartCompletion completion) {
  if (!configuration_.model || configuration_.model->empty()) return completion(std::move(result));
  auto params = acp::configOptionParams(result.sessionId, "model", *configuration_.model);
  request("session/set_config_option", std::move(params),
          [this, result, completion = std::move(completion)](Answer answer) mutable {
            if (answer) return completion(std::move(result));
            // Only a GLM model is guarded: another model of OpenCode may be billed per use.
            if (configuration_.provider == AgentProvider::glm) {
              return completion(std::unexpected(answer.error()));
            }
            std::string notice =
                fmt::format("{} did not take the chosen model {} ({}). It works with another one.",
                            configuration_.runtimeName, *configuration_.model,
                            answer.error().localizedDescription());
            if (events_.log) events_.log(notice + "\n");
            result.notice = result.notice ? *result.notice + " " + notice : std::move(notice);
            completion(std::move(result));
          });
}

bool ACPConnection::hasConfigOptions() const {
  return configuration_.provider == AgentProvider::kimi ||
         configuration_.provider == AgentProvider::glm;
}

void ACPConnection::publishModelOptions(const JsonObject& result) {
  if (!hasConfigOptions() || !events_.modelOptions) return;
  auto options = acp::modelOptions(result, shortLabel(configuration_.provider));
  if (!options.empty()) events_.modelOptions(std::move(options));
}

// ---- turns --------------------------------------------------------------------------------------

void ACPConnection::sendPrompt(std::string prompt, AgentClient::PromptCompletion completion) {
  if (!sessionId_) return completion(std::unexpected(ACPClientError::disconnected()));
  ++promptsInFlight_;
  isTurnCancelled_ = false;
  request("session/prompt", acp::promptParams(*sessionId_, std::move(prompt)),
          [this, completion = std::move(completion)](Answer answer) {
            if (--promptsInFlight_ == 0) isTurnCancelled_ = false;
            completion(std::move(answer));
          });
}

void ACPConnection::cancel() {
  if (!sessionId_) return;
  isTurnCancelled_ = promptsInFlight_ > 0;
  send(jsonrpc::notification("session/cancel", {{"sessionId", *sessionId_}}));
  allQuestionsEnded();
  for (const std::int64_t id : std::exchange(pendingPermissionIDs_, {})) {
    send(jsonrpc::response(id, acp::cancelledOutcome()));
  }
}

void ACPConnection::respondToPermission(std::int64_t requestID, std::string optionID) {
  if (pendingPermissionIDs_.erase(requestID) == 0) return;
  send(jsonrpc::response(requestID, acp::selectedOutcome(std::move(optionID))));
  questionEnded(requestID);
}

void ACPConnection::release() {
  if (host_) host_->releaseAll();
  pendingPermissionIDs_.clear();
}

AgentError ACPConnection::disconnected(const std::string& /*text*/) const {
  return ACPClientError::disconnected();
}

// ---- messages -----------------------------------------------------------------------------------

void ACPConnection::handleCall(const JsonObject& message, const std::string& method,
                               JsonObject& params, std::size_t bytes) {
  if (const auto id = json::integer(message, "id")) {
    handleRequest(*id, method, params, bytes);
  } else {
    handleNotification(method, params, bytes);
  }
}

AgentError ACPConnection::errorOfResponse(const JsonObject& error) const {
  return ACPClientError::invalidResponse(json::textOr(
      error, "message", fmt::format("{} returned an unknown error.", configuration_.runtimeName)));
}

void ACPConnection::handleNotification(std::string_view method, JsonObject& params,
                                       std::size_t bytes) {
  if (method != "session/update") return;
  Json* update = params.find("update");
  if (!update || !update->asObject()) return;
  gatherUpdate(std::move(*update->asObject()), bytes);
}

void ACPConnection::handleRequest(std::int64_t id, const std::string& method,
                                  const JsonObject& params, std::size_t bytes) {
  if (method == "session/request_permission") return handlePermissionRequest(id, params, bytes);
  const auto reply = [weak = weak_from_this(), this, id](ACPHostServices::Answer answer) {
    const auto self = weak.lock();
    if (!self) return;
    send(answer ? jsonrpc::response(id, std::move(*answer))
                : jsonrpc::errorResponse(id, jsonrpc::internalError,
                                         answer.error().localizedDescription()));
  };
  if (host_ && host_->handle(method, params, reply)) return;
  send(jsonrpc::errorResponse(id, jsonrpc::methodNotFound, "Unsupported ACP method: " + method));
}

void ACPConnection::handlePermissionRequest(std::int64_t id, const JsonObject& params,
                                            std::size_t bytes) {
  // OpenCode and Kimi Code still ask what was on its way when they were told to stop. The user has
  // been told that all has stopped, so nobody is asked and nothing is allowed.
  if (isTurnCancelled_) return send(jsonrpc::response(id, acp::cancelledOutcome()));
  PermissionRequest question = acp::permissionRequest(id, params, configuration_.runtimeName);

  // OpenCode has no full-access mode of its own, so its questions are answered here. The other
  // runtimes were told their mode when they were started.
  if (configuration_.provider == AgentProvider::glm &&
      configuration_.permissionMode == GrokPermissionMode::fullAccess) {
    for (const std::string_view kind : {"allow_always", "allow_once"}) {
      const auto option = std::ranges::find(question.options, kind, &PermissionOption::kind);
      if (option == question.options.end()) continue;
      return send(jsonrpc::response(id, acp::selectedOutcome(option->id)));
    }
  }
  pendingPermissionIDs_.insert(id);
  ask(std::move(question), bytes);
}

}  // namespace vantrell
