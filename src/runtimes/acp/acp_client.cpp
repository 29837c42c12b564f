#include "runtimes/acp/acp_client.h"

#include "runtimes/acp/acp_connection.h"
#include "runtimes/acp/acp_host_services.h"

namespace vantrell {

std::shared_ptr<ACPClient> ACPClient::make(ACPConfiguration configuration, MainQueue& main,
                                           BackgroundPool& pool) {
  std::shared_ptr<ACPClient> client(
      new ACPClient(configuration.provider, "com.local.vantrell.acp", main, pool));
  client->connect([&configuration](SerialQueue queue, std::shared_ptr<Mailbox> mailbox,
                                   AgentEvents events) -> std::shared_ptr<AgentConnection> {
    const Environment& terminals = configuration.terminalEnvironment.empty()
                                       ? configuration.processEnvironment
                                       : configuration.terminalEnvironment;
    auto host = std::make_unique<ACPHostServices>(configuration.workspacePath, terminals, queue);
    return std::make_shared<ACPConnection>(std::move(configuration), std::move(queue),
                                           std::move(mailbox), std::move(events), std::move(host));
  });
  return client;
}

}  // namespace vantrell
