#include "runtimes/wire/agent_error.h"

#include "platform/text/text.h"

namespace vantrell {

bool isUsageLimitFailure(const AgentError& error) {
  if (error.runtimeError()) {
    return error.runtimeError()->kind == AgentRuntimeError::Kind::usageLimit;
  }
  // What a program says as it dies tells of its end, be it of a full disk's quota.
  if (error.isOfTransport() || error.isDisconnection()) return false;
  const std::string words = text::lowercased(error.localizedDescription());
  const auto says = [&words](std::string_view phrase) { return words.contains(phrase); };
  return says("usage limit") || says("rate limit") || says("quota") ||
         (says("allowance") && (says("exhaust") || says("reached")));
}

}  // namespace vantrell
