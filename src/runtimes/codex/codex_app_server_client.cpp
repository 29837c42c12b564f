#include "runtimes/codex/codex_app_server_client.h"

#include "runtimes/codex/codex_connection.h"

namespace vantrell {

std::shared_ptr<CodexAppServerClient> CodexAppServerClient::make(AgentConfiguration configuration,
                                                                 MainQueue& main,
                                                                 BackgroundPool& pool) {
  std::shared_ptr<CodexAppServerClient> client(new CodexAppServerClient(
      AgentProvider::codex, "com.local.vantrell.codex-app-server", main, pool));
  client->codex_ = std::make_shared<CodexConnection>(std::move(configuration), client->channel());
  client->connect(client->codex_);
  return client;
}

void CodexAppServerClient::refreshUsage() {
  queue().post([connection = codex_] { connection->refreshUsage(); });
}

void CodexAppServerClient::consumeUsageReset(
    std::function<void(std::expected<std::string, AgentError>)> completion) {
  queue().post([connection = codex_, completion = onMain(std::move(completion))]() mutable {
    connection->consumeUsageReset(std::move(completion));
  });
}

}  // namespace vantrell
