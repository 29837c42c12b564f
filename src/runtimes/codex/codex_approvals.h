// The questions that Codex asks before it goes beyond its sandbox, and the answers in its words.
// Pure functions.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/values/json.h"
#include "runtimes/wire/agent_client.h"

namespace vantrell::codex {

/// The id of a request of Codex, a number or a text, which the response repeats in the same form;
/// null where the key has none.
const Json* rpcID(const JsonObject& message, std::string_view key);

/// A question that waits for its answer.
struct PendingApproval {
  Json rpcID;
  std::string method;
  JsonObject requestedPermissions;
};

/// The answer that withdraws a question. It is not offered as an option.
inline constexpr std::string_view cancelOption = "codex-cancel";

/// Whether the method asks for an approval.
bool isApproval(std::string_view method);
/// What the user is asked. `item` is the item that the question is about, as "item/started" brought
/// it, or null: Codex does not repeat there what it has said before.
PermissionRequest approvalQuestion(std::int64_t id, std::string_view method,
                                   const JsonObject& params, const JsonObject* item);
/// The result of the request.
JsonObject approvalAnswer(const PendingApproval& approval, std::string_view optionID);

}  // namespace vantrell::codex
