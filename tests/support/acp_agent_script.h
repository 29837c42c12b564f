// Writes scripts for the scripted agent that speak the Agent Client Protocol. The agent's ids for
// its own requests are the caller's; the client's come back as ${id}.
#pragma once

#include "support/agent_script.h"

namespace vantrell::tests {

class ACPAgentScript : public AgentScript<ACPAgentScript> {
 public:
  ACPAgentScript& result(const std::string& object) {
    return line(R"(send {"jsonrpc":"2.0","id":${id},"result":)" + object + "}");
  }
  ACPAgentScript& error(const std::string& message) {
    return line(R"(send {"jsonrpc":"2.0","id":${id},"error":{"code":-32000,"message":")" + message +
                R"("}})");
  }
  ACPAgentScript& request(int id, const std::string& method, const std::string& params) {
    return line(R"(send {"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":")" + method +
                R"(","params":)" + params + "}");
  }
  ACPAgentScript& ask(int id, const std::string& title) {
    return request(id, "session/request_permission",
                   R"({"toolCall":{"title":")" + title +
                       R"("},"options":[{"optionId":"y","name":"Yes"},)"
                       R"({"optionId":"n","name":"No","kind":"reject_once"}]})");
  }
  ACPAgentScript& expectAnswer(int id, const std::string& result) {
    return expectLine(R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"result":)" + result +
                      "}");
  }
  ACPAgentScript& expectChoice(int id, const std::string& option) {
    return expectAnswer(id, R"({"outcome":{"outcome":"selected","optionId":")" + option + R"("}})");
  }
  /// A session update whose text is `text`.
  ACPAgentScript& say(const std::string& text) {
    return line(
        R"(send {"jsonrpc":"2.0","method":"session/update","params":{"sessionId":"s1","update":)"
        R"({"sessionUpdate":"agent_message_chunk","content":{"type":"text","text":")" +
        text + R"("}}}})");
  }

  /// Answers "initialize" and "session/new" with the session "s1".
  ACPAgentScript& openSession() {
    return expect(R"("method":"initialize")")
        .result(R"({"protocolVersion":1})")
        .expect(R"("method":"session/new")")
        .result(R"({"sessionId":"s1"})");
  }
  ACPAgentScript& expectPrompt() { return expect(R"("method":"session/prompt")"); }
  ACPAgentScript& endTurn() { return result(R"({"stopReason":"end_turn"})"); }
};

}  // namespace vantrell::tests
