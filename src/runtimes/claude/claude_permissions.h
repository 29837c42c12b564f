// The questions of Claude Code that wait for the user: what is shown, and what each one needs for
// its answer. Owned by the connection, on its queue.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/values/json.h"
#include "runtimes/wire/agent_client.h"

namespace vantrell {

class ClaudePermissions {
 public:
  /// Enters a "can_use_tool" request and gives what the user is shown.
  PermissionRequest ask(std::string controlRequestID, const JsonObject& request);
  /// The answer for Claude Code, or the next of several questions that it asked at once; absent for
  /// a question that is unknown, answered or withdrawn.
  std::optional<std::variant<JsonObject, PermissionRequest>> answer(std::int64_t id,
                                                                    std::string_view optionID);
  /// A denial of each open question, oldest first; none is open then.
  std::vector<JsonObject> denyAll();
  /// Claude Code no longer waits for the answer to the question, which is named.
  std::optional<std::int64_t> withdraw(std::string_view controlRequestID);
  void clear() { pending_.clear(); }

  /// Whether it asks the user something, and not for a permission.
  static bool isUserQuestion(const JsonObject& request);

 private:
  struct Pending {
    std::string controlRequestID;
    JsonObject input;
    JsonObject answers;             // to the questions of a "AskUserQuestion" so far, by their text
    std::size_t questionCount = 0;  // of these; 0 for a permission
  };
  PermissionRequest userQuestion(Pending pending);
  std::int64_t nextID_ = 100000;
  std::map<std::int64_t, Pending> pending_;
};

}  // namespace vantrell
