// Writes scripts for the scripted agent that speak the dialect of "codex app-server". Like the real
// one it leaves "jsonrpc" out of what it sends. The client's ids come back as ${id}.
#pragma once

#include "support/agent_script.h"

namespace vantrell::tests {

class CodexAgentScript : public AgentScript<CodexAgentScript> {
 public:
  CodexAgentScript& result(const std::string& object) {
    return send(R"({"id":${id},"result":)" + object + "}");
  }
  CodexAgentScript& error(const std::string& message) {
    return send(R"({"error":{"code":-32600,"message":")" + message + R"("},"id":${id}})");
  }
  CodexAgentScript& notify(const std::string& method, const std::string& params) {
    return send(R"({"method":")" + method + R"(","params":)" + params + "}");
  }
  CodexAgentScript& request(const std::string& id, const std::string& method,
                            const std::string& params) {
    return send(R"({"method":")" + method + R"(","id":)" + id + R"(,"params":)" + params + "}");
  }

  /// Asks for approval of a "commandExecution", a "fileChange" or of "permissions".
  CodexAgentScript& ask(const std::string& id, const std::string& what,
                        const std::string& params = "{}") {
    return request(id, "item/" + what + "/requestApproval", params);
  }
  CodexAgentScript& expectAnswer(const std::string& id, const std::string& result) {
    return expectLine(R"({"jsonrpc":"2.0","id":)" + id + R"(,"result":)" + result + "}");
  }
  CodexAgentScript& expectDecision(const std::string& id, const std::string& decision) {
    return expectAnswer(id, R"({"decision":")" + decision + R"("})");
  }

  /// Answers "initialize" and leaves the first question for the allowance without an answer.
  CodexAgentScript& initialize() {
    return expect(R"("id":1,"method":"initialize")")
        .result(R"({"userAgent":"codex"})")
        .expectLine(R"({"jsonrpc":"2.0","method":"initialized"})")
        .expectLine(R"({"jsonrpc":"2.0","id":2,"method":"account/rateLimits/read","params":{}})");
  }
  /// Up to the open thread "t1"; the next request of the client has the id 4.
  CodexAgentScript& openThread() {
    return initialize().expect(R"("id":3,"method":"thread/start")").result(thread("t1"));
  }
  CodexAgentScript& expectPrompt() { return expect(R"("method":"turn/start")"); }
  CodexAgentScript& startTurn(const std::string& turn) {
    return expectPrompt().result(R"({"turn":{"id":")" + turn + R"(","status":"inProgress"}})");
  }
  CodexAgentScript& say(const std::string& item, const std::string& text) {
    return notify("item/agentMessage/delta",
                  R"({"itemId":")" + item + R"(","delta":")" + text + R"("})");
  }
  /// Ends the turn; `rest` is more of its dictionary, with a comma in front.
  CodexAgentScript& endTurn(const std::string& turn, const std::string& status = "completed",
                            const std::string& rest = "") {
    return notify("turn/completed",
                  R"({"turn":{"id":")" + turn + R"(","status":")" + status + "\"" + rest + "}}");
  }
  CodexAgentScript& expectUsageRead() { return expect(R"("method":"account/rateLimits/read")"); }

  static std::string thread(const std::string& id) {
    return R"({"thread":{"id":")" + id + R"("}})";
  }
};

}  // namespace vantrell::tests
