// A Claude Code client and a scripted agent at the other end of real pipes.
#pragma once

#include "runtimes/agent_client_fixture.h"
#include "runtimes/claude/claude_code_client.h"
#include "support/claude_agent_script.h"
#include "support/claude_frames.h"

namespace vantrell::tests {

class ClaudeClientTest : public AgentClientTest {
 protected:
  ClaudeClientTest() {
    configuration_.workspacePath = project_;
    configuration_.model = "sonnet";
    configuration_.processEnvironment = {{"PATH", "/usr/bin:/bin"}};
  }

  /// A program that takes Claude Code's arguments, writes them down and follows the script.
  void make(const AgentScriptText& script) override {
    configuration_.executable =
        program("claude", "printf '%s\\n' \"$@\" > '" + folder_ / "arguments" + "'\nexec '" +
                              AgentScriptText::program() + "' '" +
                              folder_.file("script", script.withWaitAtTheEnd()) + "'\n");
    client_ = ClaudeCodeClient::make(configuration_, main_, pool_);
  }
  std::string opening() const override { return ClaudeAgentScript().open().text(); }
  std::string beginningOfATurn() const override {
    return ClaudeAgentScript().expectPrompt().text();
  }
  std::string arguments() const { return TemporaryFolder::contentOf(folder_ / "arguments"); }

  using AgentClientTest::describe;
  std::string describe(const JsonObject& update) const override {
    if (json::object(update, "content")) return AgentClientTest::describe(update);
    return json::textOr(update, "title", "?") + " " + json::textOr(update, "status", "?");
  }
  std::string describe(const AgentStartResult& result) const override {
    return std::string("started") + (result.replayedSession ? " replayed" : "");
  }
  std::string describeEnd(const JsonObject& result) const override {
    return json::textOr(result, "result", "?");
  }

  AgentConfiguration configuration_;
};

}  // namespace vantrell::tests
