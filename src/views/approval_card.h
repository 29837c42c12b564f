// An agent's question as a person is to see it before answering: all of it, with nothing in it that
// could hide or turn around what is asked. Pure functions, any thread.
#pragma once

#include <expected>
#include <string>
#include <string_view>
#include <vector>

#include "runtimes/wire/agent_client.h"

namespace vantrell::views {

struct ApprovalOption {
  std::string id;    // goes back with the answer
  std::string name;  // on the button, behind the digit that is its place from 1
  std::string kind;
  bool isRefusal = false;
};

struct ApprovalCard {
  std::int64_t requestID = 0;
  std::string title;  // on one line
  /// The command or difference in full, a line each. Control characters and marks that change the
  /// direction of text are visible.
  std::vector<std::string> detail;
  std::vector<ApprovalOption> options;
};
ApprovalCard approvalCard(const PermissionRequest& request);

/// The option that a typed word names by its number or its id (should a word be both, the number,
/// which is what the person sees). The error says what would have been an answer.
std::expected<const PermissionOption*, std::string> readAnswer(const PermissionRequest& request,
                                                               std::string_view word);
/// The first option of this kind, or null.
const PermissionOption* optionOfKind(const PermissionRequest& request, std::string_view kind);
/// What a paired device may answer: never for good, in the order of the request.
std::vector<PermissionOption> optionsForDevices(const PermissionRequest& request);

}  // namespace vantrell::views
