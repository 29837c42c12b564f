// The allowance of a Codex subscription, as its rate limits tell it.
#pragma once

#include "platform/values/json.h"
#include "runtimes/wire/provider_usage.h"

namespace vantrell::codex {

/// Reads the result of "account/rateLimits/read", the params of "account/rateLimits/updated", or
/// the limits alone.
ProviderUsage parseRateLimits(const JsonObject& reading);

/// What is known of the allowance. "account/rateLimits/updated" holds what has changed: a window,
/// the plan or the reset credits that it leaves out or gives as null are those of the last reading;
/// that a limit was reached is not.
class CodexAllowance {
 public:
  /// The result of "account/rateLimits/read".
  ProviderUsage read(JsonObject reading);
  /// The params of "account/rateLimits/updated", which hold "rateLimits".
  ProviderUsage update(const JsonObject& update);

 private:
  JsonObject last_;
};

}  // namespace vantrell::codex
