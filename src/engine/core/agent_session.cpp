#include "engine/core/agent_session.h"

#include <utility>

#include "platform/queues/weakly.h"

namespace vantrell {

AgentSession::~AgentSession() {
  end();
}

/// Wraps a callback of the present client, which acts only while that one serves.
template <typename Body>
auto AgentSession::whileServing(Body body) {
  return weakly(this, [weakClient = std::weak_ptr(client_), body](AgentSession& self,
                                                                  auto&&... arguments) mutable {
    const auto serving = weakClient.lock();
    if (!serving || self.client_ != serving) return;
    body(self, std::forward<decltype(arguments)>(arguments)...);
  });
}

void AgentSession::start(std::shared_ptr<AgentClient> client,
                         std::optional<std::string> existingSessionID, Duration limit,
                         std::function<void(std::optional<StartResult>)> done) {
  end();
  client_ = std::move(client);
  isStarting_ = true;
  started_ = std::move(done);
  client_->setReceiving(isReceiving_);
  setCallbacks();
  if (limit > Duration::zero()) {
    startTimer_ = main_.after(limit, weakly(this, [](AgentSession& self) {
                                if (const auto late = std::exchange(self.started_, nullptr)) {
                                  late(std::nullopt);
                                }
                              }));
  }
  const auto starting = client_;  // may be replaced from within its own start
  starting->start(std::move(existingSessionID),
                  whileServing([](AgentSession& self, StartResult result) {
                    self.startTimer_.cancel();
                    self.isStarting_ = false;
                    self.isOpen_ = result.has_value();
                    const auto started = std::exchange(self.started_, nullptr);
                    if (started) started(std::move(result));
                  }));
}

void AgentSession::setCallbacks() {
  client_->onSessionUpdate = whileServing([](AgentSession& self, const JsonObject& update) {
    if (self.listener_) self.listener_->agentUpdated(update);
  });
  client_->onPermissionRequest = whileServing([](AgentSession& self, PermissionRequest request) {
    self.question_ = std::make_shared<PermissionRequest>(std::move(request));
    if (self.listener_) self.listener_->agentAsked();
  });
  client_->onLog = whileServing([](AgentSession& self, const std::string& text) {
    if (self.listener_) self.listener_->agentLogged(text);
  });
  client_->onWaiting = whileServing([](AgentSession& self, const std::string& text) {
    if (self.listener_) self.listener_->agentWaits(text);
  });
  client_->onReplayStarted = whileServing([](AgentSession& self) {
    if (self.listener_) self.listener_->agentReplayStarted();
  });
  client_->onReplayFailed = whileServing([](AgentSession& self) {
    if (self.listener_) self.listener_->agentReplayFailed();
  });
  client_->onUnexpectedTermination = whileServing([](AgentSession& self, const std::string& text) {
    self.question_ = nullptr;
    self.waitTimer_.cancel();
    const auto waiting = std::exchange(self.waiting_, std::nullopt);
    if (self.listener_) self.listener_->agentEnded(text);
    if (waiting) waiting->done(std::nullopt);
  });
  client_->onUsageUpdate = whileServing([](AgentSession& self, const ProviderUsage& usage) {
    if (self.listener_) self.listener_->agentReportedUsage(usage);
  });
  client_->onModelOptionsUpdate =
      weakly(this, [provider = client_->provider()](AgentSession& self,
                                                    std::vector<ProviderModelOption> options) {
        if (self.listener_) self.listener_->agentReportedModels(provider, std::move(options));
      });
  client_->onPermissionWithdrawn = whileServing([](AgentSession& self, std::int64_t requestID) {
    if (!self.question_ || self.question_->id != requestID) return;
    self.question_ = nullptr;
    if (self.listener_) self.listener_->agentQuestionWithdrawn();
  });
}

// ---- prompts ------------------------------------------------------------------------------------

void AgentSession::prompt(std::string text, std::function<void(std::optional<PromptResult>)> done,
                          std::function<void()> sent) {
  Waiting prompt{std::move(text), std::move(done), std::move(sent)};
  if (unansweredPrompts_ == 0) return send(std::move(prompt));
  // A runtime works on one prompt at a time: Claude Code refuses a second one, and Codex takes it
  // into the turn that is being stopped.
  waiting_ = std::move(prompt);
  waitTimer_ =
      main_.after(stopTimeout, weakly(this, [](AgentSession& self) { self.giveUpWaiting(); }));
}

void AgentSession::giveUpWaiting() {
  waitTimer_.cancel();
  if (auto waiting = std::exchange(waiting_, std::nullopt)) waiting->done(std::nullopt);
}

void AgentSession::send(Waiting prompt) {
  const auto client = client_;
  if (!client) return prompt.done(std::nullopt);
  if (prompt.sent) prompt.sent();
  if (client != client_) return;
  ++unansweredPrompts_;
  done_ = std::move(prompt.done);
  client->sendPrompt(
      std::move(prompt.text),
      whileServing([number = ++promptNumber_](AgentSession& self, PromptResult result) {
        self.answered(number, std::move(result));
      }));
}

void AgentSession::answered(std::uint64_t prompt, PromptResult result) {
  --unansweredPrompts_;
  if (unansweredPrompts_ == 0) question_ = nullptr;  // it belongs to the turn
  if (prompt == promptNumber_ && done_) {
    return std::exchange(done_, nullptr)(std::move(result));
  }
  if (unansweredPrompts_ > 0) return;
  if (listener_) listener_->agentEndedCancelledPrompts();
  if (!waiting_) return;
  // Some agents end as a whole when they are told to stop.
  if (!result && result.error().isDisconnection()) return giveUpWaiting();
  waitTimer_.cancel();
  send(*std::exchange(waiting_, std::nullopt));
}

void AgentSession::cancel() {
  done_ = nullptr;
  waiting_.reset();
  waitTimer_.cancel();
  question_ = nullptr;
  if (client_) client_->cancel();
}

// ---- questions ----------------------------------------------------------------------------------

bool AgentSession::answer(std::int64_t requestID, const std::string& optionID) {
  if (!client_ || !question_ || question_->id != requestID) return false;
  question_ = nullptr;
  client_->respondToPermission(requestID, optionID);
  return true;
}

// ---- the end ------------------------------------------------------------------------------------

void AgentSession::setReceiving(bool receiving) {
  isReceiving_ = receiving;
  if (client_) client_->setReceiving(receiving);
}

// The client goes first, so that nothing it still says finds itself serving.
void AgentSession::end() {
  const auto ended = std::exchange(client_, nullptr);
  isStarting_ = isOpen_ = false;
  startTimer_.cancel();
  waitTimer_.cancel();
  started_ = nullptr;
  done_ = nullptr;
  waiting_.reset();
  unansweredPrompts_ = 0;
  question_ = nullptr;
  if (ended) ended->stop();
}

}  // namespace vantrell
