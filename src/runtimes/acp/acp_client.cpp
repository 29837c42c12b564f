#include "runtimes/acp/acp_client.h"

#include "runtimes/acp/acp_connection.h"
#include "runtimes/acp/acp_host_services.h"

namespace vantrell {

std::shared_ptr<ACPClient> ACPClient::make(ACPConfiguration configuration, MainQueue& main,
                                           BackgroundPool& pool) {
  std::shared_ptr<ACPClient> client(
      new ACPClient(configuration.provider, "com.local.vantrell.acp", main, pool));
  auto host = std::make_unique<ACPHostServices>(configuration.workspacePath,
                                                configuration.terminalEnvironment.empty()
                                                    ? configuration.processEnvironment
                                                    : configuration.terminalEnvironment,
                                                client->queue());
  client->connect(std::make_shared<ACPConnection>(std::move(configuration), client->channel(),
                                                  std::move(host)));
  return client;
}

}  // namespace vantrell
