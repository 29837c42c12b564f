// Writes scripts for the scripted agent that speak Claude Code's stream-JSON mode.
#pragma once

#include "support/agent_script.h"
#include "support/claude_frames.h"

namespace vantrell::tests {

class ClaudeAgentScript : public AgentScript<ClaudeAgentScript> {
 public:
  /// Answers the control request that was read last.
  ClaudeAgentScript& answer(const std::string& response = "{}") {
    return send(R"({"type":"control_response","response":{"subtype":"success",)"
                R"("request_id":"${request_id}","response":)" +
                response + "}}");
  }
  /// Answers the "initialize".
  ClaudeAgentScript& open() { return expect(R"("subtype":"initialize")").answer(); }
  ClaudeAgentScript& expectPrompt() { return expect(R"({"type":"user")"); }
  ClaudeAgentScript& expectInterrupt() { return expect(R"("subtype":"interrupt")"); }
  ClaudeAgentScript& say(const std::string& text) {
    return send(R"({"type":"stream_event","event":{"type":"content_block_delta",)"
                R"("delta":{"type":"text_delta","text":")" +
                text + R"("}}})");
  }
  ClaudeAgentScript& expectAllowed(const std::string& requestID, const std::string& input) {
    return expectDecision(requestID, R"({"behavior":"allow","updatedInput":)" + input + "}");
  }
  ClaudeAgentScript& expectDenied(const std::string& requestID) {
    return expectDecision(requestID,
                          R"({"behavior":"deny","message":"Denied by the user in vantrell."})");
  }
  ClaudeAgentScript& ask(const std::string& requestID, const std::string& request) {
    return send(R"({"type":"control_request","request_id":")" + requestID + R"(","request":)" +
                request + "}");
  }
  ClaudeAgentScript& endTurn() { return send(R"({"type":"result","result":"done"})"); }

 private:
  ClaudeAgentScript& expectDecision(const std::string& requestID, const std::string& decision) {
    return expectLine(R"({"type":"control_response","response":{"subtype":"success",)"
                      R"("request_id":")" +
                      requestID + R"(","response":)" + decision + "}}");
  }
};

}  // namespace vantrell::tests
