// Steps that ask something of the host: a permission, a file, a command. Each is shown as a tool
// call. What the host refuses is told in the conversation, and the turn goes on. Main queue.
#pragma once

#include <functional>
#include <string>

#include "practice/step.h"

namespace vantrell::practice {

class ToolStep : public Step {
 public:
  ToolStep(StepContext context, Finish finish, ToolCall call);
  void start() final;
  void abandon() override;

 protected:
  using Next = std::function<void(const JsonObject& result)>;

  /// Begins, with the tool call shown as pending.
  virtual void begin() = 0;
  /// Asks for permission unless the session's mode or an earlier answer makes that needless, then
  /// goes on; a refusal ends the step.
  void askFirst(std::function<void()> next);
  /// Asks in any case, and hands on the chosen option.
  void ask(std::function<void(const std::string& optionId)> next);
  /// A request to the host about this session; an error ends the step.
  void request(std::string_view method, JsonObject params, Next next);
  /// Ends the step: shows the tool call's last status, and says what came of it.
  void conclude(std::string_view status, std::string_view words, std::string_view output = {});
  void markInProgress() { transcript().updateTool(call_, "in_progress"); }

 private:
  ToolCall call_;
  bool concluded_ = false;
};

class AskStep final : public ToolStep {
 public:
  AskStep(StepContext context, Finish finish, std::string question);

 private:
  void begin() override;
};

class ReadStep final : public ToolStep {
 public:
  ReadStep(StepContext context, Finish finish, const std::string& path);

 private:
  void begin() override;
  std::string path_;  // absolute
};

class WriteStep final : public ToolStep {
 public:
  WriteStep(StepContext context, Finish finish, const std::string& path, std::string content);

 private:
  void begin() override;
  std::string path_;  // absolute
  std::string content_;
};

class RunStep final : public ToolStep {
 public:
  RunStep(StepContext context, Finish finish, std::string command);
  void abandon() override;

 private:
  void begin() override;
  void createTerminal();
  void terminalCreated(const RpcAnswer& answer);
  void waitForExit();
  void reportOutput(const Json& exitCode);
  JsonObject terminal() const { return {{"terminalId", terminalId_}}; }

  std::string command_;
  std::string terminalId_;  // empty while there is none
};

}  // namespace vantrell::practice
