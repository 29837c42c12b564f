#include "runtimes/acp/acp_connection.h"

#include <fmt/format.h>

#include "platform/values/json_objects.h"
#include "records/values/application.h"
#include "runtimes/acp/acp_host_services.h"
#include "runtimes/acp/acp_messages.h"
#include "runtimes/acp/kimi_quirks.h"
#include "runtimes/acp/opencode_quirks.h"

namespace vantrell {

namespace {

// For three seconds at most.
constexpr auto settlingPeriod = std::chrono::milliseconds(250);
constexpr int settlingLooks = 13;

std::unique_ptr<ACPQuirks> quirksOf(const ACPConfiguration& configuration) {
  switch (configuration.provider) {
    case AgentProvider::kimi: return std::make_unique<KimiQuirks>(configuration.processEnvironment);
    case AgentProvider::glm: return std::make_unique<OpenCodeQuirks>();
    default: return std::make_unique<ACPQuirks>();
  }
}

}  // namespace

ACPConnection::ACPConnection(ACPConfiguration configuration, AgentChannel channel,
                             std::unique_ptr<ACPHostServices> host)
    : JsonRpcConnection(std::move(channel)),
      configuration_(std::move(configuration)),
      quirks_(quirksOf(configuration_)),
      host_(std::move(host)) {}

ACPConnection::~ACPConnection() = default;

// ---- start --------------------------------------------------------------------------------------

ProcessOptions ACPConnection::processOptions(const std::optional<std::string>&) {
  return {.executable = configuration_.executable,
          .arguments = configuration_.processArguments,
          .environment = configuration_.processEnvironment,
          .workingFolder = configuration_.workspacePath};
}

void ACPConnection::begin(std::optional<std::string> existingSessionID) {
  JsonObject abilities{{"fs", JsonObject{{"readTextFile", true}, {"writeTextFile", true}}},
                       {"terminal", true}};
  request("initialize",
          {{"protocolVersion", 1},
           {"clientCapabilities", std::move(abilities)},
           {"clientInfo", JsonObject{{"name", applicationName}, {"version", applicationVersion}}}},
          [this, session = std::move(existingSessionID)](const Answer& answer) {
            if (!answer) return finishStart(std::unexpected(answer.error()));
            publishModelOptions(*answer);
            const auto& capabilities = json::objectOrEmpty(*answer, "agentCapabilities");
            const bool canLoad = json::boolean(capabilities, "loadSession").value_or(false);
            session&& canLoad ? loadSession(*session) : newSession();
          });
}

void ACPConnection::loadSession(const std::string& sessionId) {
  sessionId_ = sessionId;
  tell(&AgentClient::onReplayStarted);
  // Until the answer comes the runtime plays the history back as ordinary updates.
  request("session/load",
          {{"sessionId", sessionId},
           {"cwd", configuration_.workspacePath},
           {"mcpServers", Json::Array{}}},
          [this, sessionId](const Answer& answer) {
            if (!answer) {
              tell(&AgentClient::onReplayFailed);
              return newSession();
            }
            publishModelOptions(*answer);
            sessionOpened({sessionId, true});
          });
}

void ACPConnection::newSession() {
  JsonObject params{{"cwd", configuration_.workspacePath}, {"mcpServers", Json::Array{}}};
  if (configuration_.permissionMode != GrokPermissionMode::ask) {
    const bool isAuto = configuration_.permissionMode == GrokPermissionMode::auto_;
    params.set("_meta", JsonObject{{isAuto ? "autoMode" : "yoloMode", true}});
  }
  request("session/new", std::move(params), [this](const Answer& answer) {
    if (!answer) return finishStart(std::unexpected(answer.error()));
    publishModelOptions(*answer);
    const std::string* sessionId = json::text(*answer, "sessionId");
    if (!sessionId) {
      return finishStart(
          std::unexpected(AgentError(runtimeName() + " did not return a session ID.")));
    }
    sessionId_ = *sessionId;
    sessionOpened({*sessionId, false});
  });
}

void ACPConnection::sessionOpened(AgentStartResult result) {
  result.notice = quirks_->startNotice(configuration_);
  applyMode(quirks_->modeValues(configuration_.permissionMode), std::move(result));
}

void ACPConnection::setOption(const AgentStartResult& session, std::string_view option,
                              std::string value, PendingRequests::Completion completion) {
  request("session/set_config_option",
          {{"sessionId", session.sessionId}, {"configId", option}, {"value", std::move(value)}},
          std::move(completion));
}

void ACPConnection::addNotice(AgentStartResult& result, std::string notice) {
  log(notice + "\n");
  result.notice = result.notice ? *result.notice + " " + notice : std::move(notice);
}

void ACPConnection::applyMode(std::vector<std::string_view> values, AgentStartResult result) {
  if (values.empty()) return applyModel(std::move(result));
  setOption(result, "mode", std::string(values.front()),
            [this, values, result](const Answer& answer) mutable {
              if (answer) return applyModel(std::move(result));
              if (answer.error().isDisconnection()) {
                return finishStart(std::unexpected(answer.error()));
              }
              values.erase(values.begin());
              if (!values.empty()) return applyMode(std::move(values), std::move(result));
              // The runtime still works, but under rules that were not chosen here.
              const bool asks = configuration_.permissionMode == GrokPermissionMode::ask;
              addNotice(result,
                        fmt::format("{} did not take the permission mode that is set ({}). It "
                                    "works under its own rules{}.",
                                    runtimeName(), answer.error().localizedDescription(),
                                    asks ? ", and may act without asking" : ""));
              applyModel(std::move(result));
            });
}

void ACPConnection::applyModel(AgentStartResult result) {
  const auto& model = configuration_.model;
  if (!quirks_->hasConfigOptions() || !model || model->empty()) {
    return finishStart(std::move(result));
  }
  setOption(result, "model", *model, [this, result](const Answer& answer) mutable {
    if (!answer && (quirks_->isModelGuarded() || answer.error().isDisconnection())) {
      return finishStart(std::unexpected(answer.error()));
    }
    if (!answer) {
      addNotice(
          result,
          fmt::format("{} did not take the chosen model {} ({}). It works with another one.",
                      runtimeName(), *configuration_.model, answer.error().localizedDescription()));
    }
    finishStart(std::move(result));
  });
}

void ACPConnection::publishModelOptions(const JsonObject& result) {
  if (!quirks_->hasConfigOptions()) return;
  auto options = acp::modelOptions(result, shortLabel(configuration_.provider));
  if (!options.empty()) tell(&AgentClient::onModelOptionsUpdate, std::move(options));
}

// ---- turns --------------------------------------------------------------------------------------

void ACPConnection::sendPrompt(std::string prompt, AgentClient::PromptCompletion completion) {
  if (!sessionId_) return completion(std::unexpected(notConnected()));
  ++promptsInFlight_;
  isTurnCancelled_ = false;
  updates_.beginTurn();
  quirks_->turnBegins(*sessionId_);
  JsonObject block{{"type", "text"}, {"text", std::move(prompt)}};
  request("session/prompt", {{"sessionId", *sessionId_}, {"prompt", Json::Array{std::move(block)}}},
          [this, completion = std::move(completion)](Answer answer) {
            finishTurn(std::move(answer), completion, settlingLooks);
          });
}

void ACPConnection::finishTurn(Answer answer, AgentClient::PromptCompletion completion, int looks) {
  const bool counts = answer && !isTurnCancelled_;
  if (counts && !quirks_->isSettled(updates_.hasWorked()) && looks > 1) {
    return later(settlingPeriod, [this, weak = weak_from_this(), answer = std::move(answer),
                                  completion = std::move(completion), looks] {
      if (const auto self = weak.lock()) finishTurn(answer, completion, looks - 1);
    });
  }
  if (--promptsInFlight_ == 0) isTurnCancelled_ = false;
  if (counts) {
    auto failure = quirks_->hiddenFailure(*answer, updates_.hasWorked());
    if (failure) return completion(std::unexpected(std::move(*failure)));
  }
  completion(std::move(answer));
}

void ACPConnection::cancel() {
  if (!sessionId_) return;
  isTurnCancelled_ = promptsInFlight_ > 0;
  notify("session/cancel", JsonObject{{"sessionId", *sessionId_}});
  allQuestionsEnded();
  for (const std::int64_t id : std::exchange(pendingPermissionIDs_, {})) {
    respond(id, acp::cancelledOutcome());
  }
}

void ACPConnection::respondToPermission(std::int64_t requestID, std::string optionID) {
  const auto found = pendingPermissionIDs_.find(requestID);
  if (found == pendingPermissionIDs_.end()) return;
  pendingPermissionIDs_.erase(found);
  respond(requestID, acp::selectedOutcome(std::move(optionID)));
  questionEnded(requestID);
}

void ACPConnection::release() {
  if (host_) host_->releaseAll();
  pendingPermissionIDs_.clear();
}

// ---- messages -----------------------------------------------------------------------------------

void ACPConnection::handleCall(const JsonObject& message, const std::string& method,
                               JsonObject& params, std::size_t bytes) {
  if (const auto id = json::integer(message, "id"))
    return handleRequest(*id, method, params, bytes);
  Json* update = method == "session/update" ? params.find("update") : nullptr;
  if (!update || !update->asObject()) return;
  updates_.complete(*update->asObject());
  gatherUpdate(std::move(*update->asObject()), bytes);
}

AgentError ACPConnection::errorOfResponse(const JsonObject& error) const {
  return AgentError(json::textOr(
      error, "message", fmt::format("{} returned an unknown error.", configuration_.runtimeName)));
}

void ACPConnection::handleRequest(std::int64_t id, const std::string& method,
                                  const JsonObject& params, std::size_t bytes) {
  if (method == "session/request_permission") return handlePermissionRequest(id, params, bytes);
  const auto reply = [weak = weak_from_this(), this, id](ACPHostServices::Answer answer) {
    const auto self = weak.lock();
    if (!self) return;
    if (answer) return respond(id, std::move(*answer));
    respondError(id, internalError, answer.error().localizedDescription());
  };
  if (host_ && host_->handle(method, params, reply)) return;
  respondError(id, methodNotFound, "Unsupported ACP method: " + method);
}

void ACPConnection::handlePermissionRequest(std::int64_t id, const JsonObject& params,
                                            std::size_t bytes) {
  // OpenCode and Kimi Code still ask what was on its way when they were told to stop. The user has
  // been told that all has stopped, so nothing is asked and nothing allowed.
  if (isTurnCancelled_) return respond(id, acp::cancelledOutcome());
  PermissionRequest question = acp::permissionRequest(id, params, configuration_.runtimeName);

  if (const auto* option = quirks_->ownAnswer(configuration_, question)) {
    return respond(id, acp::selectedOutcome(option->id));
  }
  pendingPermissionIDs_.insert(id);
  ask(std::move(question), bytes);
}

}  // namespace vantrell
