// What a session shows: sends session updates to the host and writes them into the history, so that
// what was seen and what is replayed are the same. Main queue; lives as long as the session's turn.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "practice/acp_host.h"
#include "practice/session.h"

namespace vantrell::practice {

struct ToolCall {
  std::string id;
  std::string title;
  std::string kind;  // the protocol's: "read", "edit", "execute", "other"
  Json rawInput;
};

struct PlanEntry {
  std::string content;
  std::string status = "pending";  // "in_progress", "completed"
};

class Transcript {
 public:
  Transcript(AcpHost& host, Session& session) : host_(host), session_(session) {}

  /// Written into the history only: the host shows its user's words itself.
  void recordPrompt(std::string_view text);
  /// A piece of the message (or thought) with this id. Pieces with one id are one message.
  void speak(HistoryItem::Kind kind, const std::string& messageId, std::string_view text);
  /// A whole message at once.
  void say(std::string_view text);
  /// A piece that is not written into the history, for texts of a size not worth keeping.
  void sayUnrecorded(const std::string& messageId, std::string_view text, Work whenWritten = {});
  void beginTool(const ToolCall& call);
  /// `status` is "in_progress", "completed" or "failed"; `output` is shown with it unless empty.
  void updateTool(const ToolCall& call, std::string_view status, std::string_view output = {});
  void showPlan(const std::vector<PlanEntry>& entries);
  /// Sends the whole history, in its order.
  void replay();

  const Session& session() const { return session_; }
  Session& session() { return session_; }
  AcpHost& host() { return host_; }

 private:
  void update(JsonObject content, Work whenWritten = {});

  AcpHost& host_;
  Session& session_;
};

}  // namespace vantrell::practice
