// The protocol side of a client whose runtime is a child process that speaks JSON lines: what every
// dialect shares. All its state lies on the client's queue; a ProcessClient owns it there and
// carries its events to the main queue. A dialect derives from it and is little but its protocol.
//
// A connection without a process drops what it sends, so that a dialect can be driven by itself.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/queues/dispatch.h"
#include "platform/values/json.h"
#include "runtimes/wire/agent_client.h"
#include "runtimes/wire/json_line_process.h"

namespace vantrell {

/// What a connection gets from its client.
struct AgentChannel {
  SerialQueue queue;
  std::shared_ptr<Mailbox> mailbox;
  /// Carries an event to the client on the main queue, after those before it. `bytes` is what it
  /// holds in memory.
  std::function<void(std::function<void(AgentClient&)> event, std::size_t bytes)> tell;
  /// Runs the work on the client's queue after the delay, unless the client has gone or another one
  /// is asked for meanwhile. Without it there is no delay.
  std::function<void(Duration delay, std::function<void()> work)> after = {};
};

class AgentConnection : public std::enable_shared_from_this<AgentConnection> {
 public:
  virtual ~AgentConnection();

  // The operations of AgentClient. Completions are called here, on the client's queue.

  void start(std::optional<std::string> existingSessionID, AgentClient::StartCompletion completion);
  /// The part of start() after the launch.
  void initialize(std::optional<std::string> existingSessionID,
                  AgentClient::StartCompletion completion);
  virtual void sendPrompt(std::string prompt, AgentClient::PromptCompletion completion) = 0;
  virtual void cancel() = 0;
  virtual void respondToPermission(std::int64_t requestID, std::string optionID) = 0;
  void stop();

  /// One message of the runtime; `bytes` is its length on the wire.
  virtual void handle(JsonObject message, std::size_t bytes) = 0;
  /// One line of its output that is no message, without its line feed. Dropped unless a dialect has
  /// a use for it.
  virtual void handleOtherLine(std::string_view /*line*/) {}
  /// Session updates are gathered, and handed out when all of a read has been handled and before
  /// anything that comes behind them.
  void handOutUpdates();

 protected:
  explicit AgentConnection(AgentChannel channel) : channel_(std::move(channel)) {}

  // A start in the words of the dialect.

  /// The process, for the session that is to be resumed, or a new one.
  virtual ProcessOptions processOptions(const std::optional<std::string>& existingSessionID) = 0;
  /// The error for a program that is not there.
  virtual AgentError missingProgram() const = 0;
  /// The runtime has been started. Ends with finishStart().
  virtual void begin(std::optional<std::string> existingSessionID) = 0;
  void finishStart(std::expected<AgentStartResult, AgentError> result);

  /// Starts the runtime; absent when it runs.
  std::optional<AgentError> launch(ProcessOptions options);
  void send(const JsonObject& message);
  /// Calls one of the client's callbacks, after the updates so far.
  template <typename... Values>
  void tell(std::function<void(Values...)> AgentClient::* callback,
            std::type_identity_t<Values>... values) {
    tell(0, callback, std::move(values)...);
  }
  template <typename... Values>
  void tell(std::size_t bytes, std::function<void(Values...)> AgentClient::* callback,
            std::type_identity_t<Values>... values) {
    handOutUpdates();
    channel_.tell(
        [callback, ... values = std::move(values)](AgentClient& client) {
          if (client.*callback) (client.*callback)(values...);
        },
        bytes);
  }
  void log(std::string text);
  /// Runs the work here after the delay, in place of what was to run so before; not at all if the
  /// client has gone by then.
  void later(Duration delay, std::function<void()> work) const;
  void gatherUpdate(JsonObject update, std::size_t bytes);
  /// One question at a time reaches the user; those behind it wait, so that none is lost behind
  /// another. Hands out the updates that came before it.
  void ask(PermissionRequest request, std::size_t bytes);
  /// The question with this id has its answer: the next one may be asked.
  void questionEnded(std::int64_t id);
  /// The runtime no longer waits for the answer. The user is told if it was shown.
  void questionWithdrawn(std::int64_t id);
  void allQuestionsEnded() { questions_.clear(); }

  // What a dialect has to say about the end of its runtime, and to do.

  virtual std::string runtimeName() const = 0;
  /// There is work in hand that must not go on behind a stop().
  virtual bool isAtWork() const = 0;
  /// Lets go of what the runtime has open here: questions to answer, terminals. Nothing can reach
  /// it.
  virtual void release() = 0;
  /// The runtime is gone: whatever waits for an answer gets this one.
  virtual void failPending(const AgentError& error) = 0;
  /// The error of what waits when the runtime goes.
  virtual AgentError disconnected(std::string text) const {
    return AgentError::disconnection(std::move(text));
  }
  /// Its text, of `how` the runtime went; a dialect may have one sentence for all.
  virtual std::string endText(const std::string& how) const { return how; }
  /// The error for a request to a runtime that does not run.
  virtual AgentError notConnected() const { return disconnected(endText({})); }
  /// A failure that is known by the system's words alone.
  virtual AgentError systemFailure(std::string text) const { return AgentError(std::move(text)); }

  enum class State { unused, open, ended };
  State state_ = State::unused;  // open from the handshake on, ended by stop() or the process

 private:
  void ended(const JsonLineProcess::End& end);

  const AgentChannel channel_;
  std::unique_ptr<JsonLineProcess> process_;
  AgentClient::StartCompletion startCompletion_;  // while it starts
  std::vector<JsonObject> updates_;               // gathered, not handed out yet
  std::size_t updateBytes_ = 0;
  struct Question {
    PermissionRequest request;
    std::size_t bytes;
  };
  void deliverFirstQuestion();
  std::deque<Question> questions_;  // the first one is with the user
};

}  // namespace vantrell
