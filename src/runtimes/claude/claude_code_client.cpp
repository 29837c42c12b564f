#include "runtimes/claude/claude_code_client.h"

#include "runtimes/claude/claude_connection.h"

namespace vantrell {

std::shared_ptr<ClaudeCodeClient> ClaudeCodeClient::make(AgentConfiguration configuration,
                                                         MainQueue& main, BackgroundPool& pool) {
  std::shared_ptr<ClaudeCodeClient> client(
      new ClaudeCodeClient(AgentProvider::claude, "com.local.vantrell.claude-code", main, pool));
  client->connect([&configuration](SerialQueue queue, std::shared_ptr<Mailbox> mailbox,
                                   AgentEvents events) -> std::shared_ptr<AgentConnection> {
    return std::make_shared<ClaudeConnection>(std::move(configuration), std::move(queue),
                                              std::move(mailbox), std::move(events));
  });
  return client;
}

}  // namespace vantrell
