// The terminals that one ACP runtime has opened, by identifier. Lives on the client's queue. A
// terminal's output is complete before its end is reported.
#pragma once

#include <expected>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "platform/process/process.h"
#include "platform/values/json.h"
#include "runtimes/wire/agent_error.h"

namespace vantrell {

class ManagedTerminal;

class TerminalManager {
 public:
  using Answer = std::expected<JsonObject, AgentError>;
  using Reply = std::function<void(Answer)>;

  TerminalManager(Environment environment, SerialQueue queue);
  ~TerminalManager();

  /// Carries out a request "terminal/..." and replies once; a wait for the end of a command replies
  /// at that end. False for a method that is none of these.
  bool handle(std::string_view method, const JsonObject& params, Reply reply);
  /// Ends every command.
  void releaseAll();

 private:
  Answer create(const JsonObject& params);

  Environment environment_;
  SerialQueue queue_;
  std::map<std::string, std::shared_ptr<ManagedTerminal>, std::less<>> terminals_;
};

}  // namespace vantrell
