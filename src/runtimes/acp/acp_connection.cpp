#include "runtimes/acp/acp_connection.h"

#include <fmt/format.h>

#include "runtimes/acp/acp_host_services.h"
#include "runtimes/acp/acp_messages.h"
#include "runtimes/acp/kimi_quirks.h"
#include "runtimes/acp/opencode_quirks.h"
#include "runtimes/wire/json_rpc.h"

namespace vantrell {

namespace {

std::unique_ptr<ACPQuirks> quirksOf(const ACPConfiguration& configuration) {
  switch (configuration.provider) {
    case AgentProvider::kimi: return std::make_unique<KimiQuirks>(configuration.processEnvironment);
    case AgentProvider::glm: return std::make_unique<OpenCodeQuirks>();
    default: return std::make_unique<ACPQuirks>();
  }
}

/// Adds a sentence for the user.
void addNotice(AgentStartResult& result, std::string sentence) {
  result.notice = result.notice ? *result.notice + " " + sentence : std::move(sentence);
}

}  // namespace

ACPConnection::ACPConnection(ACPConfiguration configuration, SerialQueue queue,
                             std::shared_ptr<Mailbox> mailbox, AgentEvents events,
                             std::unique_ptr<ACPHostServices> host)
    : JsonRpcConnection(std::move(queue), std::move(mailbox), std::move(events)),
      configuration_(std::move(configuration)),
      quirks_(quirksOf(configuration_)),
      host_(std::move(host)) {}

ACPConnection::~ACPConnection() = default;

// ---- start --------------------------------------------------------------------------------------

void ACPConnection::begin(std::optional<std::string> existingSessionID,
                          AgentClient::StartCompletion completion) {
  if (state_ != State::unused) return completion(std::unexpected(disconnected(endText({}))));
  auto error = launch({.executable = configuration_.executable,
                       .arguments = configuration_.processArguments,
                       .environment = configuration_.processEnvironment,
                       .workingFolder = configuration_.workspacePath},
                      AgentError::notInstalled(configuration_.runtimeName));
  if (error) return completion(std::unexpected(std::move(*error)));
  initialize(std::move(existingSessionID), std::move(completion));
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
              return completion(std::unexpected(AgentError(
                  fmt::format("{} did not return a session ID.", configuration_.runtimeName))));
            }
            sessionId_ = *sessionId;
            applyRuntimeConfiguration({*sessionId, false}, completion);
          });
}

void ACPConnection::applyRuntimeConfiguration(AgentStartResult result,
                                              AgentClient::StartCompletion completion) {
  if (auto notice = quirks_->startNotice(configuration_)) addNotice(result, std::move(*notice));
  applyMode(quirks_->modeValues(configuration_.permissionMode), std::move(result),
            std::move(completion));
}

void ACPConnection::applyMode(std::vector<std::string_view> values, AgentStartResult result,
                              AgentClient::StartCompletion completion) {
  if (values.empty()) return applyModel(std::move(result), std::move(completion));
  auto params = acp::configOptionParams(result.sessionId, "mode", std::string(values.front()));
  request("session/set_config_option", std::move(params),
          [this, values = std::move(values), result = std::move(result),
           completion = std::move(completion)](const Answer& answer) mutable {
            if (answer) return applyModel(std::move(result), std::move(completion));
            if (answer.error().isDisconnection())
              return completion(std::unexpected(answer.error()));
            values.erase(values.begin());
            if (!values.empty()) {
              return applyMode(std::move(values), std::move(result), std::move(completion));
            }
            // The runtime still works, but under rules that were not chosen here.
            std::string notice = fmt::format(
                "{} did not take the permission mode that is set ({}). It works under its own "
                "rules{}.",
                configuration_.runtimeName, answer.error().localizedDescription(),
                configuration_.permissionMode == GrokPermissionMode::ask
                    ? ", and may act without asking"
                    : "");
            if (events_.log) events_.log(notice + "\n");
            addNotice(result, std::move(notice));
            applyModel(std::move(result), std::move(completion));
          });
}

void ACPConnection::applyModel(AgentStartResult result, AgentClient::StartCompletion completion) {
  const auto& model = configuration_.model;
  if (!quirks_->hasConfigOptions() || !model || model->empty()) {
    return completion(std::move(result));
  }
  request("session/set_config_option", acp::configOptionParams(result.sessionId, "model", *model),
          [this, result, completion = std::move(completion)](Answer answer) mutable {
            if (answer) return completion(std::move(result));
            if (quirks_->isModelGuarded() || answer.error().isDisconnection()) {
              return completion(std::unexpected(answer.error()));
            }
            std::string notice =
                fmt::format("{} did not take the chosen model {} ({}). It works with another one.",
                            configuration_.runtimeName, *configuration_.model,
                            answer.error().localizedDescription());
            if (events_.log) events_.log(notice + "\n");
            addNotice(result, std::move(notice));
            completion(std::move(result));
          });
}

void ACPConnection::publishModelOptions(const JsonObject& result) {
  if (!quirks_->hasConfigOptions() || !events_.modelOptions) return;
  auto options = acp::modelOptions(result, shortLabel(configuration_.provider));
  if (!options.empty()) events_.modelOptions(std::move(options));
}

// ---- turns --------------------------------------------------------------------------------------

void ACPConnection::sendPrompt(std::string prompt, AgentClient::PromptCompletion completion) {
  if (!sessionId_) return completion(std::unexpected(disconnected(endText({}))));
  ++promptsInFlight_;
  isTurnCancelled_ = false;
  updates_.beginTurn();
  quirks_->turnBegins(*sessionId_);
  request("session/prompt", acp::promptParams(*sessionId_, std::move(prompt)),
          [this, completion = std::move(completion)](Answer answer) {
            const bool isCancelled = isTurnCancelled_;
            if (--promptsInFlight_ == 0) isTurnCancelled_ = false;
            if (answer && !isCancelled) {
              auto failure = quirks_->hiddenFailure(*answer, updates_.hasWorked());
              if (failure) return completion(std::unexpected(std::move(*failure)));
            }
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
  const auto found = pendingPermissionIDs_.find(requestID);
  if (found == pendingPermissionIDs_.end()) return;
  pendingPermissionIDs_.erase(found);
  send(jsonrpc::response(requestID, acp::selectedOutcome(std::move(optionID))));
  questionEnded(requestID);
}

void ACPConnection::release() {
  if (host_) host_->releaseAll();
  pendingPermissionIDs_.clear();
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
  return AgentError(json::textOr(
      error, "message", fmt::format("{} returned an unknown error.", configuration_.runtimeName)));
}

void ACPConnection::handleNotification(std::string_view method, JsonObject& params,
                                       std::size_t bytes) {
  if (method != "session/update") return;
  Json* update = params.find("update");
  if (!update || !update->asObject()) return;
  updates_.complete(*update->asObject());
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

  if (const auto* option = quirks_->ownAnswer(configuration_, question)) {
    return send(jsonrpc::response(id, acp::selectedOutcome(option->id)));
  }
  pendingPermissionIDs_.insert(id);
  ask(std::move(question), bytes);
}

}  // namespace vantrell
