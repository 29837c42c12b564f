// An agent runtime that speaks the Agent Client Protocol: Grok Build, Kimi Code, OpenCode with a
// GLM model, and Grok Build pointed at a local model. One class serves them all; what differs is
// the configuration. ACPConnection is the protocol.
#pragma once

#include "runtimes/acp/acp_configuration.h"
#include "runtimes/wire/process_client.h"

namespace vantrell {

class ACPClient final : public ProcessClient {
 public:
  static std::shared_ptr<ACPClient> make(ACPConfiguration configuration, MainQueue& main,
                                         BackgroundPool& pool);

 private:
  using ProcessClient::ProcessClient;
};

}  // namespace vantrell
