// The session updates that more than one dialect makes. Pure functions.
#pragma once

#include <string>

#include "platform/values/json.h"

namespace vantrell::sessionUpdates {

inline JsonObject chunk(const char* kind, std::string messageID, std::string text) {
  return {{"sessionUpdate", kind},
          {"messageId", std::move(messageID)},
          {"content", JsonObject{{"type", "text"}, {"text", std::move(text)}}}};
}

/// A piece of the message with this id: of the agent's answer, and of its reasoning.
inline JsonObject messageChunk(std::string messageID, std::string text) {
  return chunk("agent_message_chunk", std::move(messageID), std::move(text));
}
inline JsonObject thoughtChunk(std::string messageID, std::string text) {
  return chunk("agent_thought_chunk", std::move(messageID), std::move(text));
}

}  // namespace vantrell::sessionUpdates
