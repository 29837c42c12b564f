// What a turn consists of, items and the plan, as session updates. Pure functions.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/values/json.h"

namespace vantrell::codex {

/// A piece of the reasoning ("agent_thought_chunk"), under an id of its own.
JsonObject thoughtChunk(std::string_view itemId, std::string text);

/// How an item that has begun or ended is shown; absent for a kind that is not shown. `wasStreamed`
/// says that the text of this item came in pieces, which must not be written twice.
std::optional<JsonObject> itemUpdate(const JsonObject& item, bool isCompleted, bool wasStreamed,
                                     const std::string& workspacePath);

/// The plan of "turn/plan/updated".
JsonObject planUpdate(const JsonObject& params);

}  // namespace vantrell::codex
