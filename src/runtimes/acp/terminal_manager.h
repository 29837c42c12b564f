// The terminals that one ACP runtime has opened, by identifier. Lives on the client's queue. A
// terminal's output is complete before its end is reported.
#pragma once

#include <expected>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/process/process.h"
#include "platform/values/json.h"
#include "runtimes/wire/agent_error.h"

namespace vantrell {

class ManagedTerminal;

class TerminalManager {
 public:
  using Answer = std::expected<JsonObject, AgentError>;

  TerminalManager(Environment environment, SerialQueue queue);
  ~TerminalManager();

  // Each takes the params of the request "terminal/..." of its name and gives the result.

  Answer create(const JsonObject& params);
  Answer output(const JsonObject& params) const;
  /// The terminal stays known and its output readable.
  Answer kill(const JsonObject& params);
  Answer release(const JsonObject& params);
  /// Replies when the command has ended, at once when it has already.
  void waitForExit(const JsonObject& params, std::function<void(Answer)> reply);

  void releaseAll();

 private:
  std::expected<std::shared_ptr<ManagedTerminal>, AgentError> find(const JsonObject& params) const;

  Environment environment_;
  SerialQueue queue_;
  std::map<std::string, std::shared_ptr<ManagedTerminal>, std::less<>> terminals_;
};

}  // namespace vantrell
