// The host's side for tests: starts the built practice agent on real pipes and keeps what it sends.
#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/process/process.h"
#include "platform/queues/manual_main_queue.h"
#include "platform/values/json.h"

namespace vantrell::practice {

class PracticeHost {
 public:
  /// Answers a request of the agent; absent: it stays open. Unset: every request is refused.
  using Services =
      std::function<std::optional<JsonObject>(const std::string& method, const JsonObject& params)>;
  Services services;

  explicit PracticeHost(const std::string& stateHome, std::vector<std::string> arguments = {"acp"});
  ~PracticeHost();
  PracticeHost(const PracticeHost&) = delete;
  PracticeHost& operator=(const PracticeHost&) = delete;

  /// Sends a request and waits for its answer; the error is the agent's message.
  std::expected<JsonObject, std::string> call(std::string_view method, JsonObject params);
  std::int64_t send(std::string_view method, JsonObject params);
  std::expected<JsonObject, std::string> waitFor(std::int64_t id);
  void notify(std::string_view method, JsonObject params);
  void write(std::string bytes) { process_->write(std::move(bytes)); }
  Process& process() { return *process_; }

  /// initialize and session/new; the session's id is kept and put into prompts.
  void open(const std::string& folder);
  std::string sessionId;
  /// Runs a prompt to its end and answers the stop reason, or "error: " and the agent's message.
  std::string prompt(std::string_view text);
  std::int64_t sendPrompt(std::string_view text);
  std::string stopReason(std::int64_t promptId);
  void cancel() { notify("session/cancel", {{"sessionId", sessionId}}); }

  /// Waits until it holds; a failure of the test when it does not.
  void waitUntil(const std::function<bool()>& condition);
  ExitStatus waitForExit();

  // What came from the agent.
  std::vector<JsonObject> updates;    // "update" of each session/update
  std::vector<std::string> requests;  // methods, in their order
  std::vector<std::string> strange;   // lines that are no JSON objects
  std::string errors;                 // standard error
  std::string rest;                   // of standard output, behind the last line feed
  std::optional<ExitStatus> exit;
  std::optional<ProcessError> writeError;

  /// The updates of a kind.
  std::vector<JsonObject> updatesOf(std::string_view kind) const;
  /// All text of message chunks (or another kind of chunk), joined.
  std::string said(std::string_view kind = "agent_message_chunk") const;
  /// The statuses that tool calls went through, in their order, as "pending in_progress completed".
  std::string toolStatuses() const;

 private:
  void handleOutput(std::string_view bytes);
  void handleLine(std::string_view line);
  void handleRequest(const JsonObject& message, const std::string& method);
  void sendMessage(const JsonObject& message);

  ManualMainQueue main_;
  BackgroundPool pool_{1};
  SerialQueue queue_{pool_, "practice host"};
  std::int64_t nextId_ = 1;
  std::map<std::int64_t, JsonObject> answers_;
  std::shared_ptr<Process> process_;
};

}  // namespace vantrell::practice
