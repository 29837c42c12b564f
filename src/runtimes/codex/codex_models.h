// The models that Codex offers. Pure functions.
#pragma once

#include <vector>

#include "platform/values/json.h"
#include "runtimes/wire/provider_options.h"

namespace vantrell::codex {

/// What can be chosen when Codex has not said what it offers: its own choice.
std::vector<ProviderModelOption> unknownModels();
/// Reads the result of "model/list": Codex's own choice and then each model that is not hidden.
/// Empty when it names none.
std::vector<ProviderModelOption> modelOptions(const JsonObject& result);

}  // namespace vantrell::codex
