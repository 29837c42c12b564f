// One agent client at work for somebody: its start with a limit of time, one prompt at a time, its
// open question, and its end. What a client says reaches the listener only while it is the one
// that serves here, so a late word of one that was replaced changes nothing. Used by
// conversations, the media generator and jobs. Main queue; owned by its user.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/queues/dispatch.h"
#include "runtimes/wire/agent_client.h"
#include "runtimes/wire/provider_options.h"

namespace vantrell {

class AgentSession : public std::enable_shared_from_this<AgentSession> {
 public:
  using StartResult = std::expected<AgentStartResult, AgentError>;
  using PromptResult = std::expected<JsonObject, AgentError>;

  /// Hears the client that serves.
  class Listener {
   public:
    virtual ~Listener() = default;
    virtual void agentUpdated(const JsonObject& update) = 0;
    /// A question has been opened: question().
    virtual void agentAsked() = 0;
    /// The question is open no longer: withdrawn by the runtime.
    virtual void agentQuestionWithdrawn() = 0;
    /// The runtime works on, but cannot go on until something has changed: what it waits for.
    virtual void agentWaits(const std::string& /*text*/) {}
    virtual void agentLogged(std::string_view text) = 0;
    /// The runtime went away by itself. The client still serves during the call.
    virtual void agentEnded(const std::string& text) = 0;
    virtual void agentReplayStarted() {}
    virtual void agentReplayFailed() {}
    virtual void agentReportedUsage(const ProviderUsage&) {}
    /// Also of a client that was replaced meanwhile: it tells of its own provider.
    virtual void agentReportedModels(AgentProvider, std::vector<ProviderModelOption>) {}
    /// The last prompt that was cancelled has been answered.
    virtual void agentEndedCancelledPrompts() {}
  };

  /// The listener may be set once it is known; it must outlive the session.
  explicit AgentSession(MainQueue& main) : main_(main) {}
  ~AgentSession();
  void setListener(Listener* listener) { listener_ = listener; }

  /// Null where none serves. Under construction, started or ended by itself, but not replaced.
  const std::shared_ptr<AgentClient>& client() const { return client_; }
  bool isServedBy(AgentProvider provider) const {
    return client_ && client_->provider() == provider;
  }
  bool isStarting() const { return isStarting_; }
  /// Its start has succeeded.
  bool isOpen() const { return isOpen_; }

  /// Puts the client in the place of the one that served, which is ended, and starts it. `done`
  /// comes at most once: with the result, or nullopt where it has not come in `limit` (zero: no
  /// limit). The client serves on until the caller ends it.
  void start(std::shared_ptr<AgentClient> client, std::optional<std::string> existingSessionID,
             Duration limit, std::function<void(std::optional<StartResult>)> done);

  /// Runs one turn. While a cancelled one has not been answered it waits, `stopTimeout` at most.
  /// `done` comes at most once, and never after cancel() or end(); nullopt: the client has not
  /// answered for the cancelled one, or has gone over it, and another has to take the prompt.
  void prompt(std::string text, std::function<void(std::optional<PromptResult>)> done,
              std::function<void()> sent = {});
  /// Asks the runtime to stop; the client stays. What waits to be sent is forgotten.
  void cancel();
  bool hasUnansweredPrompt() const { return unansweredPrompts_ > 0; }

  /// The question that is open; null where none is. It ends with its client and with its turn.
  const std::shared_ptr<const PermissionRequest>& question() const { return question_; }
  /// Answers the open question, which is closed then. False where that one is not open any more:
  /// nothing was sent.
  bool answer(std::int64_t requestID, const std::string& optionID);

  void setReceiving(bool receiving);
  /// Stops the client and forgets it with all that waits for it.
  void end();

  /// How long the next prompt waits for the end of a turn that was stopped.
  static constexpr std::chrono::seconds stopTimeout{10};

 private:
  struct Waiting {
    std::string text;
    std::function<void(std::optional<PromptResult>)> done;
    std::function<void()> sent;
  };

  template <typename Body>
  auto whileServing(Body body);
  void setCallbacks();
  void send(Waiting prompt);
  void answered(std::uint64_t prompt, PromptResult result);
  void giveUpWaiting();

  MainQueue& main_;
  Listener* listener_ = nullptr;
  std::shared_ptr<AgentClient> client_;
  bool isStarting_ = false;
  bool isOpen_ = false;
  bool isReceiving_ = true;
  Timer startTimer_;
  std::function<void(std::optional<StartResult>)> started_;
  std::uint64_t promptNumber_ = 0;  // of the latest that was sent
  int unansweredPrompts_ = 0;
  std::function<void(std::optional<PromptResult>)> done_;  // of the latest, unless cancelled
  std::optional<Waiting> waiting_;
  Timer waitTimer_;
  std::shared_ptr<const PermissionRequest> question_;
};

}  // namespace vantrell
