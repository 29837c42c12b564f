// What the host does for an ACP runtime: project files, held to the project folder, and terminals.
// Lives on the client's queue; file work blocks that queue for its duration.
#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/process/process.h"
#include "platform/values/json.h"
#include "runtimes/wire/agent_error.h"

namespace vantrell {

class TerminalManager;

class ACPHostServices {
 public:
  using Answer = std::expected<JsonObject, AgentError>;
  using Reply = std::function<void(Answer)>;

  /// `terminalEnvironment` is the complete environment of terminals before a request's own
  /// variables.
  ACPHostServices(std::string workspacePath, Environment terminalEnvironment, SerialQueue queue);
  ~ACPHostServices();

  /// Carries the request out and replies once, on the client's queue, mostly before returning (a
  /// wait for a terminal's end replies later). False for a method that is not a host service.
  bool handle(std::string_view method, const JsonObject& params, Reply reply);

  /// Ends every terminal; waits for an exit that are still open get their answer.
  void releaseAll();

 private:
  Answer readTextFile(const JsonObject& params) const;
  Answer writeTextFile(const JsonObject& params) const;
  bool isInsideProject(std::string_view path) const;
  /// A link that stands in the project and leads out of it.
  bool leadsOutside(const std::string& target) const;

  std::string root_;
  std::unique_ptr<TerminalManager> terminals_;
};

}  // namespace vantrell
