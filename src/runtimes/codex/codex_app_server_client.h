// The Codex CLI, driven through its "app-server" mode. Beside the interface it can be asked for the
// subscription's allowance, and to spend a credit that resets it. CodexConnection is the protocol.
#pragma once

#include "runtimes/wire/agent_configuration.h"
#include "runtimes/wire/process_client.h"

namespace vantrell {

class CodexConnection;

class CodexAppServerClient final : public ProcessClient {
 public:
  static std::shared_ptr<CodexAppServerClient> make(AgentConfiguration configuration,
                                                    MainQueue& main, BackgroundPool& pool);

  /// Asks for fresh allowance numbers, which come through onUsageUpdate. Main queue; a failure is
  /// not told.
  void refreshUsage();
  /// Spends a manual reset credit. Completes on the main queue with the runtime's word: "reset",
  /// "noCredit", "nothingToReset" or another. Main queue.
  void consumeUsageReset(std::function<void(std::expected<std::string, AgentError>)> completion);

 private:
  using ProcessClient::ProcessClient;

  std::shared_ptr<CodexConnection> codex_;  // the connection by its own type
};

}  // namespace vantrell
