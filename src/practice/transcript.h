// What a session shows: sends session updates to the host and writes them into the history, so that
// what was seen and what is replayed are the same. Main queue; lives as long as its session.
#pragma once

#include <string>
#include <string_view>

#include "practice/acp_host.h"
#include "practice/session.h"

namespace vantrell::practice {

// Kinds of messages.
inline constexpr std::string_view answerChunk = "agent_message_chunk";
inline constexpr std::string_view thoughtChunk = "agent_thought_chunk";

class Transcript {
 public:
  Transcript(AcpHost& host, Session& session) : host_(host), session_(session) {}

  /// Written into the history only: the host shows its user's words itself.
  void recordPrompt(std::string_view text);
  /// A piece of the message with this id, of one of the kinds above. Pieces with one id are one
  /// message.
  void speak(std::string_view kind, const std::string& messageId, std::string_view text);
  /// A whole answer at once.
  void say(std::string_view text);
  /// A piece of an answer that is not written into the history, for texts of a size not worth
  /// keeping.
  void sayUnrecorded(const std::string& messageId, std::string_view text, Work whenWritten = {});
  /// Shows the tool call as pending; it has "toolCallId", "title", "kind" and "rawInput".
  void beginTool(const JsonObject& call);
  /// `status` is "in_progress", "completed" or "failed"; `output` is shown with it unless empty.
  void updateTool(const std::string& callId, std::string_view status, std::string_view output = {});
  void showPlan(Json::Array entries);
  /// Sends the whole history, in its order.
  void replay();

  Session& session() { return session_; }
  AcpHost& host() { return host_; }

 private:
  void update(JsonObject content, Work whenWritten = {});

  AcpHost& host_;
  Session& session_;
};

}  // namespace vantrell::practice
