#include "runtimes/wire/process_client.h"

#include "runtimes/wire/agent_connection.h"

namespace vantrell {

ProcessClient::ProcessClient(AgentProvider provider, std::string queueLabel, MainQueue& main,
                             BackgroundPool& pool)
    : provider_(provider),
      queue_(pool, std::move(queueLabel)),
      main_(main),
      mailbox_(std::make_shared<Mailbox>(main)) {}

ProcessClient::~ProcessClient() {
  stop();
}

AgentChannel ProcessClient::channel() {
  return {queue_, mailbox_,
          [mailbox = mailbox_, weak = weak_from_this()](auto event, std::size_t bytes) {
            mailbox->deliver(
                [weak, event = std::move(event)] {
                  if (const auto client = weak.lock()) event(*client);
                },
                bytes);
          },
          [mailbox = mailbox_, weak = weak_from_this()](Duration delay, auto work) {
            mailbox->deliver([weak, delay, work = std::move(work)] {
              const auto client = weak.lock();
              if (!client) return;
              client->timer_ =
                  client->main_.after(delay, [queue = client->queue_, work] { queue.post(work); });
            });
          }};
}

void ProcessClient::connect(std::shared_ptr<AgentConnection> connection) {
  connection_ = std::move(connection);
}

void ProcessClient::start(std::optional<std::string> existingSessionID,
                          StartCompletion completion) {
  queue_.post([connection = connection_, session = std::move(existingSessionID),
               completion = onMain(std::move(completion))]() mutable {
    connection->start(std::move(session), std::move(completion));
  });
}

void ProcessClient::sendPrompt(std::string prompt, PromptCompletion completion) {
  queue_.post([connection = connection_, prompt = std::move(prompt),
               completion = onMain(std::move(completion))]() mutable {
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
