// Claude Code, driven as one long-lived process in its stream-JSON mode. ClaudeConnection is the
// protocol.
#pragma once

#include "runtimes/wire/agent_configuration.h"
#include "runtimes/wire/process_client.h"

namespace vantrell {

class ClaudeCodeClient final : public ProcessClient {
 public:
  static std::shared_ptr<ClaudeCodeClient> make(AgentConfiguration configuration, MainQueue& main,
                                                BackgroundPool& pool);

 private:
  using ProcessClient::ProcessClient;
};

}  // namespace vantrell
