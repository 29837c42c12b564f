// A Codex client and a scripted counterpart at the other end of real pipes.
#pragma once

#include "runtimes/agent_client_fixture.h"
#include "runtimes/codex/codex_app_server_client.h"
#include "support/codex_agent_script.h"

namespace vantrell::tests {

class CodexClientTest : public AgentClientTest {
 protected:
  CodexClientTest() {
    configuration_.executable = AgentScriptText::program();
    configuration_.workspacePath = project_;
    configuration_.processEnvironment = {{"PATH", "/usr/bin:/bin"}};
  }

  /// The counterpart takes the client's only argument, "app-server", for the name of its script.
  void make(const AgentScriptText& script) override {
    folder_.file("project/app-server", script.withWaitAtTheEnd());
    client_ = CodexAppServerClient::make(configuration_, main_, pool_);
  }
  std::string opening() const override { return CodexAgentScript().openThread().text(); }
  std::string beginningOfATurn() const override {
    return CodexAgentScript().startTurn("u1").text();
  }
  CodexAppServerClient& codex() { return static_cast<CodexAppServerClient&>(*client_); }
  void consumeReset() {
    codex().consumeUsageReset([this](std::expected<std::string, AgentError> outcome) {
      note("reset " + (outcome ? *outcome : describe(outcome.error())));
    });
  }

  using AgentClientTest::describe;
  std::string describe(const JsonObject& update) const override {
    const JsonObject* content = json::object(update, "content");
    if (!content) return json::write(update);
    return (json::textOr(update, "sessionUpdate", "") == "agent_message_chunk" ? "says "
                                                                               : "thinks ") +
           json::textOr(update, "messageId", "") + " " + json::textOr(*content, "text", "?");
  }
  /// The kind of a failure and its words: no failure of Codex comes without its kind.
  std::string describe(const AgentError& error) const override {
    constexpr const char* kinds[] = {"usageLimit", "authentication", "disconnected",
                                     "protocolError"};
    const auto& known = error.runtimeError();
    const bool isOurs = known && known->provider == AgentProvider::codex;
    return std::string(isOurs ? kinds[static_cast<int>(known->kind)] : "UNKNOWN") + " " +
           error.localizedDescription();
  }
  std::string describeEnd(const JsonObject& result) const override {
    return json::textOr(result, "status", "?");
  }

  AgentConfiguration configuration_;
};

}  // namespace vantrell::tests
