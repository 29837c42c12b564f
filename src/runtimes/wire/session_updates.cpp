#include "runtimes/wire/session_updates.h"

namespace vantrell::sessionUpdates {

namespace {

JsonObject chunk(const char* kind, std::string messageID, std::string text) {
  return {{"sessionUpdate", kind},
          {"messageId", std::move(messageID)},
          {"content", JsonObject{{"type", "text"}, {"text", std::move(text)}}}};
}

}  // namespace

JsonObject messageChunk(std::string messageID, std::string text) {
  return chunk("agent_message_chunk", std::move(messageID), std::move(text));
}

JsonObject thoughtChunk(std::string messageID, std::string text) {
  return chunk("agent_thought_chunk", std::move(messageID), std::move(text));
}

}  // namespace vantrell::sessionUpdates
