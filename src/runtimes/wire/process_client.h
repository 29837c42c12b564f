// The main-queue side of every client whose runtime is a child process: it owns the connection,
// which lives on the client's queue, and carries calls there and events back, in order.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/queues/dispatch.h"
#include "platform/queues/mailbox.h"
#include "runtimes/wire/agent_client.h"

namespace vantrell {

class AgentConnection;
struct AgentChannel;

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
  /// For the dialect, as soon as the client is held by a shared pointer; then connect(), once.
  AgentChannel channel();
  void connect(std::shared_ptr<AgentConnection> connection);

  const SerialQueue& queue() const { return queue_; }
  /// A completion for the client's queue, which arrives on the main queue behind every event that
  /// was told before it.
  template <typename Result>
  std::function<void(Result)> onMain(std::function<void(Result)> completion) const {
    return [mailbox = mailbox_, completion = std::move(completion)](Result result) {
      mailbox->deliver([completion, result = std::move(result)]() mutable {
        if (completion) completion(std::move(result));
      });
    };
  }

 private:
  const AgentProvider provider_;
  const SerialQueue queue_;
  MainQueue& main_;
  const std::shared_ptr<Mailbox> mailbox_;
  Timer timer_;                                  // for the connection
  std::shared_ptr<AgentConnection> connection_;  // its state belongs to the queue
};

}  // namespace vantrell
