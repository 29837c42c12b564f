// The three dialects as the runtimes of benchmarks speak them: what they read, what they answer,
// and what an update looks like, with the keys that the real ones send along.
#pragma once

#include <array>
#include <fmt/format.h>
#include <memory>
#include <string>
#include <vector>

#include "runtimes/acp/acp_client.h"
#include "runtimes/claude/claude_code_client.h"
#include "runtimes/codex/codex_app_server_client.h"

namespace vantrell::bench {

struct StreamDialect {
  /// So many lines are read, and then this one is written; nothing when it is empty.
  struct Step {
    int reads = 1;
    std::string answer;
  };

  std::string name;
  AgentProvider provider;
  std::vector<Step> untilTheTurn;
  std::string endOfTurn;
  std::string (*update)(const std::string& messageID, const std::string& text);
  /// Of the time to the observer against parsing alone. A throughput of half of parsing alone is
  /// twice its time. What ACP sends is handed on as it came; of Codex and Claude Code each update
  /// is made anew, which allocates as much again as reading it.
  double limit;
  std::shared_ptr<AgentClient> (*makeClient)(std::string executable, std::string folder,
                                             Environment environment, MainQueue& main,
                                             BackgroundPool& pool);
};

inline const std::array<StreamDialect, 3>& streamDialects() {
  static const std::array<StreamDialect, 3> dialects{
      StreamDialect{
          .name = "ACP",
          .provider = AgentProvider::grok,
          .untilTheTurn = {{1, R"({"jsonrpc":"2.0","id":1,"result":{}})"},
                           {1, R"({"jsonrpc":"2.0","id":2,"result":{"sessionId":"s"}})"},
                           {1, ""}},
          .endOfTurn = R"({"jsonrpc":"2.0","id":3,"result":{"stopReason":"end_turn"}})",
          .update =
              [](const std::string& messageID, const std::string& text) {
                return fmt::format(
                    R"({{"jsonrpc":"2.0","method":"session/update","params":{{"sessionId":"9a0d2c1e-5b1f-4d55-8e3a-0f6f3c2b7a11","update":{{"sessionUpdate":"agent_message_chunk","messageId":"{}","content":{{"type":"text","text":"{}"}}}}}}}})",
                    messageID, text);
              },
          .limit = 2.0,
          .makeClient = [](std::string executable, std::string folder, Environment environment,
                           MainQueue& main, BackgroundPool& pool) -> std::shared_ptr<AgentClient> {
            return ACPClient::make({.executable = std::move(executable),
                                    .workspacePath = std::move(folder),
                                    .processEnvironment = std::move(environment),
                                    .runtimeName = "Bench"},
                                   main, pool);
          }},
      StreamDialect{
          .name = "Codex",
          .provider = AgentProvider::codex,
          // "initialized" and the question for the allowance come between.
          .untilTheTurn = {{1, R"({"id":1,"result":{}})"},
                           {3, R"({"id":3,"result":{"thread":{"id":"t"}}})"},
                           {1, R"({"id":4,"result":{"turn":{"id":"u"}}})"}},
          .endOfTurn =
              R"({"method":"turn/completed","params":{"turn":{"id":"u","status":"completed"}}})",
          .update =
              [](const std::string& messageID, const std::string& text) {
                return fmt::format(
                    R"({{"method":"item/agentMessage/delta","params":{{"threadId":"01a205da-58bd-7c31-b07d-005a2664c499","turnId":"u","itemId":"{}","delta":"{}"}},"emittedAtMs":1795394475614}})",
                    messageID, text);
              },
          .limit = 3.0,
          .makeClient = [](std::string executable, std::string folder, Environment environment,
                           MainQueue& main, BackgroundPool& pool) -> std::shared_ptr<AgentClient> {
            return CodexAppServerClient::make({.executable = std::move(executable),
                                               .workspacePath = std::move(folder),
                                               .processEnvironment = std::move(environment)},
                                              main, pool);
          }},
      StreamDialect{
          .name = "Claude Code",
          .provider = AgentProvider::claude,
          .untilTheTurn =
              {{1,
                R"({"type":"control_response","response":{"subtype":"success","request_id":"vantrell_1","response":{}}})"},
               {1, R"({"type":"system","subtype":"init","session_id":"s"})"}},
          .endOfTurn = R"({"type":"result","is_error":false,"result":"done"})",
          // It names no messages: a turn is one.
          .update =
              [](const std::string& /*messageID*/, const std::string& text) {
                return fmt::format(
                    R"({{"type":"stream_event","event":{{"index":1,"delta":{{"type":"text_delta","text":"{}"}},"type":"content_block_delta"}},"session_id":"9a0d2c1e-5b1f-4d55-8e3a-0f6f3c2b7a11","parent_tool_use_id":null}})",
                    text);
              },
          .limit = 3.0,
          .makeClient = [](std::string executable, std::string folder, Environment environment,
                           MainQueue& main, BackgroundPool& pool) -> std::shared_ptr<AgentClient> {
            return ClaudeCodeClient::make({.executable = std::move(executable),
                                           .workspacePath = std::move(folder),
                                           .model = "sonnet",
                                           .processEnvironment = std::move(environment)},
                                          main, pool);
          }},
  };
  return dialects;
}

}  // namespace vantrell::bench
