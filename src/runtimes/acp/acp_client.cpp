#include "runtimes/acp/acp_client.h"

#include "runtimes/acp/acp_connection.h"
#include "runtimes/acp/acp_host_services.h"
#include "runtimes/catalog/locators.h"

namespace vantrell {

std::shared_ptr<ACPClient> ACPClient::make(ACPConfiguration configuration, MainQueue& main,
                                           BackgroundPool& pool) {
  std::shared_ptr<ACPClient> client(
      new ACPClient(configuration.provider, "com.local.vantrell.acp", main, pool));
  client->connect([&configuration](SerialQueue queue, std::shared_ptr<Mailbox> mailbox,
                                   AgentEvents events) -> std::shared_ptr<AgentConnection> {
    // Terminals run in Grok's environment whichever the runtime is: it is the one that only adds to
    // PATH, as a user's own shell would have it.
    auto host = std::make_unique<ACPHostServices>(configuration.workspacePath,
                                                  GrokLocator::augmentedEnvironment(), queue);
    return std::make_shared<ACPConnection>(std::move(configuration), std::move(queue),
                                           std::move(mailbox), std::move(events), std::move(host));
  });
  return client;
}

}  // namespace vantrell
