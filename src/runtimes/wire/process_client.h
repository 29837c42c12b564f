// The main-queue side of every client whose runtime is a child process: it owns the connection,
// which lives on the client's queue, and carries calls there and events back, in order.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/queues/dispatch.h"
#include "runtimes/wire/agent_client.h"

namespace vantrell {

class AgentConnection;
class Mailbox;
struct AgentEvents;

class ProcessClient : public AgentClient, public std::enable_shared_from_this<ProcessClient> {
 public:
  /// stop().
  ~ProcessClient() override;

  AgentProvider provider() const override { return provider_; }
  void start(std::optional<std::string> existingSessionID, StartCompletion completion) override;
  void sendPrompt(std::string prompt, PromptCompletion completion) override;
  void cancel() override;
  void respondToPermission(std::int64_t requestID, std::string optionID) override;
  void setReceiving(bool receiving) override;
  void stop() override;

 protected:
  ProcessClient(AgentProvider provider, std::string queueLabel, MainQueue& main,
                BackgroundPool& pool);
  /// Makes the dialect, which gets the client's queue, its mailbox and its events. Once, as soon as
  /// the client is held by a shared pointer.
  void connect(const std::function<std::shared_ptr<AgentConnection>(
                   SerialQueue, std::shared_ptr<Mailbox>, AgentEvents)>& makeConnection);

  const SerialQueue& queue() const { return queue_; }
  /// Its state belongs to queue().
  const std::shared_ptr<AgentConnection>& connection() const { return connection_; }
  const std::shared_ptr<Mailbox>& mailbox() const { return mailbox_; }

 private:
  const AgentProvider provider_;
  const SerialQueue queue_;
  const std::shared_ptr<Mailbox> mailbox_;
  std::shared_ptr<AgentConnection> connection_;
};

}  // namespace vantrell
