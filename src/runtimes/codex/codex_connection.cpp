#include "runtimes/codex/codex_connection.h"

#include <algorithm>
#include <fmt/format.h>

#include "platform/values/json_objects.h"
#include "records/values/application.h"
#include "runtimes/codex/codex_items.h"
#include "runtimes/codex/codex_messages.h"
#include "runtimes/wire/session_updates.h"

namespace vantrell {

using Kind = AgentRuntimeError::Kind;

// ---- start --------------------------------------------------------------------------------------

ProcessOptions CodexConnection::processOptions(const std::optional<std::string>&) {
  return {.executable = configuration_.executable,
          .arguments = {"app-server"},
          .environment = configuration_.processEnvironment,
          .workingFolder = configuration_.workspacePath};
}

void CodexConnection::open(std::string_view version, PendingRequests::Completion completion) {
  if (auto error = launch(processOptions({}))) {
    return completion(std::unexpected(std::move(*error)));
  }
  state_ = State::open;
  introduce(version, std::move(completion));
}

void CodexConnection::introduce(std::string_view version, PendingRequests::Completion completion) {
  state_ = State::open;
  request(
      "initialize",
      {{"clientInfo",
        JsonObject{{"name", applicationName}, {"title", applicationName}, {"version", version}}},
       {"capabilities", JsonObject{{"experimentalApi", true}}}},
      [this, completion = std::move(completion)](const Answer& answer) {
        if (answer) notify("initialized");
        completion(answer);
      });
}

void CodexConnection::begin(std::optional<std::string> existingSessionID) {
  introduce(applicationVersion,
            [this, session = std::move(existingSessionID)](const Answer& answer) {
              if (!answer) return finishStart(std::unexpected(answer.error()));
              refreshUsage();
              openThread(session);
            });
}

void CodexConnection::openThread(const std::optional<std::string>& existingSessionID) {
  const bool isResumed = existingSessionID.has_value();
  request(isResumed ? "thread/resume" : "thread/start",
          codex::threadParams(configuration_, existingSessionID),
          [this, isResumed](const Answer& answer) {
            // Codex has lost or never had that thread: a new one serves as well.
            if (!answer && isResumed) return openThread(std::nullopt);
            if (!answer) return finishStart(std::unexpected(answer.error()));
            const std::string* id = json::text(json::objectOrEmpty(*answer, "thread"), "id");
            if (!id) {
              return finishStart(std::unexpected(AgentError(
                  codex::failure(Kind::protocolError, "Codex did not return a thread ID."))));
            }
            sessionId_ = *id;
            finishStart(AgentStartResult{*id, isResumed});
          });
}

// ---- turns --------------------------------------------------------------------------------------

void CodexConnection::sendPrompt(std::string prompt, AgentClient::PromptCompletion completion) {
  if (!sessionId_) {
    return completion(
        std::unexpected(AgentError(codex::failure(Kind::disconnected, "Codex is not connected."))));
  }
  streamedItems_.clear();
  turns_.startSent();
  isTurnCancelled_ = false;
  request(
      "turn/start", codex::turnStartParams(configuration_, *sessionId_, std::move(prompt)),
      [this, number = ++promptCount_, completion = std::move(completion)](const Answer& answer) {
        const std::string* id =
            answer ? json::text(json::objectOrEmpty(*answer, "turn"), "id") : nullptr;
        if (id) {
          turns_.started(*id, completion);
          if (number <= cancelledPrompts_ && turns_.currentTurnID() == *id) interrupt(*id);
          return;
        }
        turns_.startFailed();
        completion(std::unexpected(
            answer
                ? AgentError(codex::failure(Kind::protocolError, "Codex did not return a turn ID."))
                : answer.error()));
      });
}

void CodexConnection::cancel() {
  isTurnCancelled_ = turns_.isBusy();
  // A turn can be interrupted once its id is known.
  if (turns_.isStarting()) cancelledPrompts_ = promptCount_;
  if (turns_.currentTurnID()) interrupt(*turns_.currentTurnID());
  allQuestionsEnded();
  for (const auto& [id, approval] : std::exchange(pendingApprovals_, {})) {
    respond(approval.rpcID, codex::approvalAnswer(approval, codex::cancelOption));
  }
}

void CodexConnection::interrupt(const std::string& turnId) {
  if (!sessionId_) return;
  turnToInterrupt_ = turnId;
  request("turn/interrupt", {{"threadId", *sessionId_}, {"turnId", turnId}},
          [this, turnId](const Answer& answer) {
            if (answer && turnToInterrupt_ == turnId) turnToInterrupt_.reset();
          });
}

void CodexConnection::respondToPermission(std::int64_t requestID, std::string optionID) {
  const auto found = pendingApprovals_.extract(requestID);
  if (found.empty()) return;
  const auto& approval = found.mapped();
  respond(approval.rpcID, codex::approvalAnswer(approval, optionID));
  questionEnded(requestID);
}

AgentError CodexConnection::disconnected(std::string text) const {
  return codex::failure(Kind::disconnected, std::move(text));
}

AgentError CodexConnection::systemFailure(std::string text) const {
  return codex::failure(Kind::protocolError, std::move(text));
}

// ---- usage --------------------------------------------------------------------------------------

void CodexConnection::refreshUsage() {
  request("account/rateLimits/read", {}, [this](const Answer& answer) {
    if (answer) tell(&AgentClient::onUsageUpdate, allowance_.read(*answer));
  });
}

void CodexConnection::consumeUsageReset(
    std::function<void(std::expected<std::string, AgentError>)> completion) {
  request("account/rateLimitResetCredit/consume", codex::consumeResetCreditParams(),
          [this, completion = std::move(completion)](const Answer& answer) {
            if (!answer) return completion(std::unexpected(answer.error()));
            refreshUsage();
            completion(codex::resetOutcome(*answer));
          });
}

// ---- messages -----------------------------------------------------------------------------------

void CodexConnection::handleCall(const JsonObject& message, const std::string& method,
                                 JsonObject& params, std::size_t bytes) {
  if (const Json* id = codex::rpcID(message, "id")) {
    return handleRequest(*id, method, params, bytes);
  }
  if (method == "item/agentMessage/delta") return handleDelta(params, false, bytes);
  if (method == "item/reasoning/summaryTextDelta" || method == "item/reasoning/textDelta") {
    return handleDelta(params, true, bytes);
  }
  if (method == "item/started") return handleItem(params, false, bytes);
  if (method == "item/completed") return handleItem(params, true, bytes);
  if (method == "item/fileChange/patchUpdated") return handlePatchUpdated(params);
  if (method == "turn/plan/updated") return gatherUpdate(codex::planUpdate(params), bytes);
  if (method == "turn/started") return handleTurnStarted(params);
  if (method == "turn/completed") return handleTurnCompleted(params);
  if (method == "error") return handleError(params);
  if (method == "serverRequest/resolved") return handleResolved(params);
  if (method == "account/rateLimits/updated" && json::object(params, "rateLimits")) {
    tell(&AgentClient::onUsageUpdate, allowance_.update(params));
  }
}

AgentError CodexConnection::errorOfResponse(const JsonObject& error) const {
  return codex::runtimeError(error, "Codex returned an unknown error.");
}

void CodexConnection::handleDelta(JsonObject& params, bool isReasoning, std::size_t bytes) {
  Json* delta = params.find("delta");
  const std::string* itemId = json::text(params, "itemId");
  if (!delta || !delta->asText() || !itemId) return;
  streamedItems_.insert(*itemId);
  std::string text = std::move(*delta->asText());
  gatherUpdate(isReasoning ? codex::thoughtChunk(*itemId, std::move(text))
                           : sessionUpdates::messageChunk(*itemId, std::move(text)),
               bytes);
}

void CodexConnection::handleItem(const JsonObject& params, bool isCompleted, std::size_t bytes) {
  const JsonObject* item = json::object(params, "item");
  if (!item) return;
  keepForApproval(*item, isCompleted);
  const bool wasStreamed = streamedItems_.contains(json::textOr(*item, "id", ""));
  if (auto update =
          codex::itemUpdate(*item, isCompleted, wasStreamed, configuration_.workspacePath)) {
    gatherUpdate(std::move(*update), bytes);
  }
}

void CodexConnection::keepForApproval(const JsonObject& item, bool isCompleted) {
  const std::string* id = json::text(item, "id");
  if (!id) return;
  const std::string type = json::textOr(item, "type", "");
  if (isCompleted) {
    openItems_.erase(*id);
  } else if (type == "fileChange" || type == "commandExecution") {
    openItems_.insert_or_assign(*id, item);
  }
}

void CodexConnection::handlePatchUpdated(const JsonObject& params) {
  const auto item = openItems_.find(json::textOr(params, "itemId", ""));
  const Json::Array* changes = json::array(params, "changes");
  if (item != openItems_.end() && changes) item->second.set("changes", *changes);
}

void CodexConnection::handleError(const JsonObject& params) {
  const JsonObject& error = json::objectOrEmpty(params, "error");
  if (json::boolean(params, "willRetry").value_or(false)) {
    // Codex tries for ever while there is no network, and is silent otherwise.
    const std::string* words = json::text(error, "message");
    if (words) tell(&AgentClient::onWaiting, "Codex is waiting: " + *words);
  } else if (const std::string* turnId = json::text(params, "turnId")) {
    turns_.reportError(*turnId, codex::runtimeError(error, "Codex turn failed."));
  }
}

void CodexConnection::handleTurnStarted(const JsonObject& params) {
  // Between the answer to "turn/start" and this word Codex refuses an interruption with "no active
  // turn to interrupt", and would run the turn that was cancelled to its end.
  const std::string* id = json::text(json::objectOrEmpty(params, "turn"), "id");
  if (id && turnToInterrupt_ == *id) interrupt(*id);
}

void CodexConnection::handleTurnCompleted(const JsonObject& params) {
  const JsonObject& turn = json::objectOrEmpty(params, "turn");
  const std::string* id = json::text(turn, "id");
  if (!id) return;
  handOutUpdates();
  if (turnToInterrupt_ == *id) turnToInterrupt_.reset();
  turns_.ended(*id, turn);
  if (!turns_.isBusy()) {
    openItems_.clear();
    isTurnCancelled_ = false;
  }
  refreshUsage();
}

void CodexConnection::handleRequest(const Json& id, const std::string& method,
                                    const JsonObject& params, std::size_t bytes) {
  if (!codex::isApproval(method)) {
    return respondError(
        id, methodNotFound,
        fmt::format("{} does not support Codex request {}.", applicationName, method));
  }
  codex::PendingApproval approval{id, method, json::objectOrEmpty(params, "permissions")};
  // A question that crossed the interruption on its way: the user has been told that all has
  // stopped.
  if (isTurnCancelled_) {
    return respond(id, codex::approvalAnswer(approval, codex::cancelOption));
  }
  const std::int64_t approvalID = nextApprovalID_++;
  const auto item = openItems_.find(json::textOr(params, "itemId", ""));
  auto question = codex::approvalQuestion(approvalID, method, params,
                                          item == openItems_.end() ? nullptr : &item->second);
  pendingApprovals_.emplace(approvalID, std::move(approval));
  ask(std::move(question), bytes);
}

// Codex no longer waits for the answer: its own reviewer has decided, or the turn has ended over
// the question, which would otherwise stay on the screen and in front of those behind it. Of a
// question that was answered here nothing is left.
void CodexConnection::handleResolved(const JsonObject& params) {
  const Json* resolved = codex::rpcID(params, "requestId");
  const auto found = std::ranges::find_if(pendingApprovals_, [resolved](const auto& each) {
    return resolved && each.second.rpcID == *resolved;
  });
  if (found == pendingApprovals_.end()) return;
  const std::int64_t approvalID = found->first;
  pendingApprovals_.erase(found);
  questionWithdrawn(approvalID);
}

void CodexConnection::failPending(const AgentError& error) {
  const auto turns = turns_.takeAll();
  JsonRpcConnection::failPending(error);
  for (const auto& completion : turns) completion(std::unexpected(error));
}

}  // namespace vantrell
