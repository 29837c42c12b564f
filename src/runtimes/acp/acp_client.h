// An agent runtime that speaks the Agent Client Protocol: Grok Build, Kimi Code, OpenCode with a
// GLM model, and Grok Build pointed at a local model. One class serves them all; what differs is
// the configuration. This is the main-queue side; ACPConnection is the protocol.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "platform/dispatch.h"
#include "runtimes/acp/acp_configuration.h"
#include "runtimes/agent_client.h"
#include "runtimes/provider_options.h"

namespace vantrell {

class ACPConnection;
class Mailbox;

class ACPClient final : public AgentClient, public std::enable_shared_from_this<ACPClient> {
 public:
  static std::shared_ptr<ACPClient> make(ACPConfiguration configuration, MainQueue& main,
                                         BackgroundPool& pool);
  /// stop().
  ~ACPClient() override;

  /// The runtime reported its models and efforts (Kimi and OpenCode).
  std::function<void(std::vector<ProviderModelOption>)> onModelOptionsUpdate;

  AgentProvider provider() const override { return provider_; }
  void start(std::optional<std::string> existingSessionID, StartCompletion completion) override;
  void sendPrompt(std::string prompt, PromptCompletion completion) override;
  void cancel() override;
  void respondToPermission(std::int64_t requestID, std::string optionID) override;
  void setReceiving(bool receiving) override;
  void stop() override;

 private:
  ACPClient(AgentProvider provider, MainQueue& main, BackgroundPool& pool);
  void connect(ACPConfiguration configuration);

  const AgentProvider provider_;
  const SerialQueue queue_;
  const std::shared_ptr<Mailbox> mailbox_;
  std::shared_ptr<ACPConnection> connection_;  // its state belongs to queue_
};

}  // namespace vantrell
