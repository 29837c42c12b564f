#include "runtimes/acp/acp_client.h"

#include "platform/mailbox.h"
#include "runtimes/acp/acp_connection.h"
#include "runtimes/acp/acp_host_services.h"
#include "runtimes/locators.h"

namespace vantrell {

namespace {

/// Carries a completion to the main queue, behind every update that came before it.
template <typename Result>
std::function<void(Result)> onMain(std::shared_ptr<Mailbox> mailbox,
                                   std::function<void(Result)> completion) {
  return [mailbox = std::move(mailbox), completion = std::move(completion)](Result result) {
    mailbox->deliver([completion, result = std::move(result)]() mutable {
      if (completion) completion(std::move(result));
    });
  };
}

}  // namespace

std::shared_ptr<ACPClient> ACPClient::make(ACPConfiguration configuration, MainQueue& main,
                                           BackgroundPool& pool) {
  std::shared_ptr<ACPClient> client(new ACPClient(configuration.provider, main, pool));
  client->connect(std::move(configuration));
  return client;
}

ACPClient::ACPClient(AgentProvider provider, MainQueue& main, BackgroundPool& pool)
    : provider_(provider),
      queue_(pool, "com.local.vantrell.acp"),
      mailbox_(std::make_shared<Mailbox>(main)) {}

ACPClient::~ACPClient() {
  stop();
}

void ACPClient::connect(ACPConfiguration configuration) {
  const auto tell = [mailbox = mailbox_, weak = weak_from_this()](auto event,
                                                                  std::size_t bytes = 0) {
    mailbox->deliver(
        [weak, event = std::move(event)]() mutable {
          if (const auto client = weak.lock()) event(*client);
        },
        bytes);
  };

  ACPConnection::Events events;
  events.sessionUpdates = [tell](std::vector<JsonObject> updates, std::size_t bytes) {
    tell(
        [updates = std::move(updates)](ACPClient& client) mutable {
          for (const auto& update : updates) {
            if (client.onSessionUpdate) client.onSessionUpdate(update);
          }
          // Their memory goes back to where it was taken: freed here, it would make this queue wait
          // for the allocations of the next updates, and those for this queue.
          client.queue_.post([updates = std::move(updates)] {});
        },
        bytes);
  };
  events.permissionRequest = [tell](PermissionRequest request, std::size_t bytes) {
    tell(
        [request = std::move(request)](ACPClient& client) mutable {
          if (client.onPermissionRequest) client.onPermissionRequest(std::move(request));
        },
        bytes);
  };
  events.log = [tell](std::string text) {
    const std::size_t bytes = text.size();
    tell(
        [text = std::move(text)](ACPClient& client) {
          if (client.onLog) client.onLog(text);
        },
        bytes);
  };
  events.replayStarted = [tell] {
    tell([](ACPClient& client) {
      if (client.onReplayStarted) client.onReplayStarted();
    });
  };
  events.replayFailed = [tell] {
    tell([](ACPClient& client) {
      if (client.onReplayFailed) client.onReplayFailed();
    });
  };
  events.unexpectedTermination = [tell](std::string text) {
    tell([text = std::move(text)](ACPClient& client) mutable {
      if (client.onUnexpectedTermination) client.onUnexpectedTermination(std::move(text));
    });
  };
  events.modelOptions = [tell](std::vector<ProviderModelOption> options) {
    tell([options = std::move(options)](ACPClient& client) mutable {
      if (client.onModelOptionsUpdate) client.onModelOptionsUpdate(std::move(options));
    });
  };

  // Terminals run in Grok's environment whichever the runtime is: it is the one that only adds to
  // PATH, as a user's own shell would have it.
  auto host = std::make_unique<ACPHostServices>(configuration.workspacePath,
                                                GrokLocator::augmentedEnvironment(), queue_);
  connection_ = std::make_shared<ACPConnection>(std::move(configuration), queue_, mailbox_,
                                                std::move(events), std::move(host));
}

void ACPClient::start(std::optional<std::string> existingSessionID, StartCompletion completion) {
  queue_.post([connection = connection_, session = std::move(existingSessionID),
               completion = onMain(mailbox_, std::move(completion))]() mutable {
    connection->start(std::move(session), std::move(completion));
  });
}

void ACPClient::sendPrompt(std::string prompt, PromptCompletion completion) {
  queue_.post([connection = connection_, prompt = std::move(prompt),
               completion = onMain(mailbox_, std::move(completion))]() mutable {
    connection->sendPrompt(std::move(prompt), std::move(completion));
  });
}

void ACPClient::cancel() {
  queue_.post([connection = connection_] { connection->cancel(); });
}

void ACPClient::respondToPermission(std::int64_t requestID, std::string optionID) {
  queue_.post([connection = connection_, requestID, optionID = std::move(optionID)]() mutable {
    connection->respondToPermission(requestID, std::move(optionID));
  });
}

void ACPClient::setReceiving(bool receiving) {
  mailbox_->setOpen(receiving);
}

void ACPClient::stop() {
  queue_.post([connection = connection_] { connection->stop(); });
}

}  // namespace vantrell
