// The session updates that more than one dialect makes. Pure functions.
#pragma once

#include <string>

#include "platform/values/json.h"

namespace vantrell::sessionUpdates {

/// A piece of the message with this id: of the agent's answer, and of its reasoning.
JsonObject messageChunk(std::string messageID, std::string text);
JsonObject thoughtChunk(std::string messageID, std::string text);

}  // namespace vantrell::sessionUpdates
