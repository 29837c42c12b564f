// Asks something of the host: a permission, a file, a command. It is shown as a tool call. What the
// host refuses is told in the conversation, and the turn goes on. Main queue; whatever it waits for
// holds it weakly.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/queues/dispatch.h"
#include "practice/transcript.h"

namespace vantrell::practice {

/// What the host said that it can do for an agent.
struct HostAbilities {
  bool readsFiles = false;
  bool writesFiles = false;
  bool hasTerminals = false;
};

/// What a turn works with.
struct TurnContext {
  MainQueue& queue;
  Transcript& transcript;
  OutputWriter& output;
  HostAbilities abilities;
  std::function<void()> closeInput;
};

class ToolStep : public std::enable_shared_from_this<ToolStep> {
 public:
  /// Called once at the end. Cancelled: the host has withdrawn a question, as it does when it
  /// cancels the turn.
  using Finish = std::function<void(bool isCancelled)>;

  ToolStep(const TurnContext& context, Finish finish)
      : context_(context),
        host_(context.transcript.host()),
        sessionId_(context.transcript.session().id),
        finish_(std::move(finish)) {}

  // One of these, once. Paths are the project's.
  void ask(const std::string& question);
  void read(const std::string& path);
  void write(const std::string& path, const std::string& content);
  void run(const std::string& command);

  /// The turn is over: leaves nothing half done at the host, and does not finish any more.
  void abandon();

 private:
  using Next = std::function<void(const JsonObject& result)>;

  void begin(std::string title, std::string kind, JsonObject rawInput);
  /// Asks for permission unless the session's mode or an earlier answer makes that needless, then
  /// goes on; a refusal ends the step.
  void askFirst(std::function<void()> next);
  /// Asks in any case, and hands on the chosen option.
  void askPermission(std::function<void(const std::string& optionId)> next);
  /// A request to the host about this session; an error ends the step.
  void request(std::string_view method, JsonObject params, Next next);
  /// Of the terminal, by its method's name; without `next` nothing waits for the answer.
  void terminal(const std::string& method, Next next = {});
  void createTerminal(const std::string& command);
  void reportOutput(const JsonObject& exited);
  /// Ends the step: shows the tool call's last status, and says what came of it.
  void conclude(std::string_view status, std::string_view words, std::string_view output = {});
  std::string inProject(const std::string& path) const;

  Transcript& transcript() { return context_.transcript; }

  const TurnContext context_;  // not used after the end: a session may be loaded again
  AcpHost& host_;
  const std::string sessionId_;
  Finish finish_;  // empty once it has ended
  JsonObject call_;
  std::string callId_;
  std::string terminalId_;  // empty while there is none
};

}  // namespace vantrell::practice
