#include "runtimes/claude/claude_code_client.h"

#include "runtimes/claude/claude_connection.h"

namespace vantrell {

std::shared_ptr<ClaudeCodeClient> ClaudeCodeClient::make(AgentConfiguration configuration,
                                                         MainQueue& main, BackgroundPool& pool) {
  std::shared_ptr<ClaudeCodeClient> client(
      new ClaudeCodeClient(AgentProvider::claude, "com.local.vantrell.claude-code", main, pool));
  client->connect(std::make_shared<ClaudeConnection>(std::move(configuration), client->channel()));
  return client;
}

}  // namespace vantrell
