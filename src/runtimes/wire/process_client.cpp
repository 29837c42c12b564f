#include "runtimes/wire/process_client.h"

#include "platform/queues/mailbox.h"
#include "runtimes/wire/agent_connection.h"
#include "runtimes/wire/on_main.h"

namespace vantrell {

ProcessClient::ProcessClient(AgentProvider provider, std::string queueLabel, MainQueue& main,
                             BackgroundPool& pool)
    : provider_(provider),
      queue_(pool, std::move(queueLabel)),
      mailbox_(std::make_shared<Mailbox>(main)) {}

ProcessClient::~ProcessClient() {
  stop();
}

void ProcessClient::connect(
    const std::function<std::shared_ptr<AgentConnection>(SerialQueue, std::shared_ptr<Mailbox>,
                                                         AgentEvents)>& makeConnection) {
  const auto tell = [mailbox = mailbox_, weak = weak_from_this()](auto event,
                                                                  std::size_t bytes = 0) {
    mailbox->deliver(
        [weak, event = std::move(event)]() mutable {
          if (const auto client = weak.lock()) event(*client);
        },
        bytes);
  };

  AgentEvents events;
  events.sessionUpdates = [tell](std::vector<JsonObject> updates, std::size_t bytes) {
    tell(
        [updates = std::move(updates)](ProcessClient& client) mutable {
          for (const auto& update : updates) {
            if (client.onSessionUpdate) client.onSessionUpdate(update);
          }
          // Their memory goes back to where it was taken: freed here, it would make this queue wait
          // for the allocations of the next updates, and those for this queue.
          client.queue_.post([updates = std::move(updates)] {});
        },
        bytes);
  };
  // An event without a size of its own that goes to one callback of the interface.
  const auto to = [tell](auto callback) {
    return [tell, callback](auto value) {
      tell([callback, value = std::move(value)](ProcessClient& client) mutable {
        if (client.*callback) (client.*callback)(std::move(value));
      });
    };
  };
  const auto toPlain = [tell](std::function<void()> AgentClient::* callback) {
    return [tell, callback] {
      tell([callback](ProcessClient& client) {
        if (client.*callback) (client.*callback)();
      });
    };
  };
  events.permissionRequest = [tell](PermissionRequest request, std::size_t bytes) {
    tell(
        [request = std::move(request)](ProcessClient& client) mutable {
          if (client.onPermissionRequest) client.onPermissionRequest(std::move(request));
        },
        bytes);
  };
  events.log = [tell](std::string text) {
    const std::size_t bytes = text.size();
    tell(
        [text = std::move(text)](ProcessClient& client) {
          if (client.onLog) client.onLog(text);
        },
        bytes);
  };
  events.permissionWithdrawn = to(&AgentClient::onPermissionWithdrawn);
  events.waiting = to(&AgentClient::onWaiting);
  events.unexpectedTermination = to(&AgentClient::onUnexpectedTermination);
  events.modelOptions = to(&AgentClient::onModelOptionsUpdate);
  events.usage = to(&AgentClient::onUsageUpdate);
  events.replayStarted = toPlain(&AgentClient::onReplayStarted);
  events.replayFailed = toPlain(&AgentClient::onReplayFailed);
  connection_ = makeConnection(queue_, mailbox_, std::move(events));
}

void ProcessClient::start(std::optional<std::string> existingSessionID,
                          StartCompletion completion) {
  queue_.post([connection = connection_, session = std::move(existingSessionID),
               completion = onMain(mailbox_, std::move(completion))]() mutable {
    connection->start(std::move(session), std::move(completion));
  });
}

void ProcessClient::sendPrompt(std::string prompt, PromptCompletion completion) {
  queue_.post([connection = connection_, prompt = std::move(prompt),
               completion = onMain(mailbox_, std::move(completion))]() mutable {
    connection->sendPrompt(std::move(prompt), std::move(completion));
  });
}

void ProcessClient::cancel() {
  queue_.post([connection = connection_] { connection->cancel(); });
}

void ProcessClient::respondToPermission(std::int64_t requestID, std::string optionID) {
  queue_.post([connection = connection_, requestID, optionID = std::move(optionID)]() mutable {
    connection->respondToPermission(requestID, std::move(optionID));
  });
}

void ProcessClient::setReceiving(bool receiving) {
  mailbox_->setOpen(receiving);
}

void ProcessClient::stop() {
  queue_.post([connection = connection_] { connection->stop(); });
}

}  // namespace vantrell
