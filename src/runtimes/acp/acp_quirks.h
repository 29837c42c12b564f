// What one ACP program does differently from the others. The base class is a program without
// deviations; each program that has some derives from it in a file of its own. Lives on the
// client's queue.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "runtimes/acp/acp_configuration.h"
#include "runtimes/wire/agent_client.h"

namespace vantrell {

class ACPQuirks {
 public:
  virtual ~ACPQuirks() = default;

  /// It reports its models, and takes one, as config options of the session.
  virtual bool hasConfigOptions() const { return false; }
  /// The values of the option "mode" for the permission mode, to be tried in order; empty when the
  /// mode is given otherwise.
  virtual std::vector<std::string_view> modeValues(GrokPermissionMode) const { return {}; }
  /// A session without the chosen model must not be used.
  virtual bool isModelGuarded() const { return false; }
  /// The option by which a question is answered without the user.
  virtual const PermissionOption* ownAnswer(const ACPConfiguration&,
                                            const PermissionRequest&) const {
    return nullptr;
  }
  /// What the user should know at the start of a session.
  virtual std::optional<std::string> startNotice(const ACPConfiguration&) const {
    return std::nullopt;
  }
  virtual void turnBegins(const std::string& /*sessionID*/) {}
  /// What the program itself records about the turn that it has just answered is complete; asked
  /// again until it is, for some seconds at most. `hasWorked` as below.
  virtual bool isSettled(bool /*hasWorked*/) { return true; }
  /// The failure of a turn that the program reports as a success. `hasWorked`: the turn had some
  /// text, thought, plan or tool.
  virtual std::optional<AgentError> hiddenFailure(const JsonObject& /*result*/,
                                                  bool /*hasWorked*/) const {
    return std::nullopt;
  }
};

}  // namespace vantrell
