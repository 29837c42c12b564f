// What the targets of the dialects share: a connection without a process that has a start and
// prompts open, and is sent whatever a runtime may send, in any order. The first byte of an input
// chooses the configuration; then each line is a message, or with "!" in front something that the
// client's owner does.
//
// No completion may come twice, and all must have come after a stop.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "platform/queues/mailbox.h"
#include "platform/queues/manual_main_queue.h"
#include "runtimes/wire/agent_connection.h"
#include "runtimes/wire/line_buffer.h"

namespace vantrell::fuzz {

inline void require(bool holds) {
  if (!holds) std::abort();
}

template <typename Connection>
class DispatchDriver {
 public:
  void line(std::string_view text) {
    if (text == "!prompt") {
      prompt();
    } else if (text == "!cancel") {
      connection_->cancel();
    } else if (text == "!read") {
      connection_->handOutUpdates();
    } else if (text == "!stop") {
      connection_->stop();
    } else if (ownerDoes(text)) {
      return;
    } else if (auto message = json::parseObject(text)) {
      connection_->handle(std::move(*message), text.size());
    } else {
      connection_->handleOtherLine(text);
    }
  }

  void finish() {
    connection_->stop();
    require(starts_ == 1);
    require(ends_ == begun_);
  }

 protected:
  virtual ~DispatchDriver() = default;

  /// The client to which events go at once; a dialect sets its callbacks.
  struct Listener final : AgentClient {
    AgentProvider provider() const override { return AgentProvider::grok; }
    void start(std::optional<std::string>, StartCompletion) override {}
    void sendPrompt(std::string, PromptCompletion) override {}
    void cancel() override {}
    void respondToPermission(std::int64_t, std::string) override {}
    void stop() override {}
  };

  template <typename Configuration, typename... Rest>
  void connect(Configuration configuration, Rest&&... rest) {
    static BackgroundPool pool(1);
    // Nothing goes without a process.
    listener_.onUnexpectedTermination = [](const std::string&) { std::abort(); };
    connection_ = std::make_shared<Connection>(
        std::move(configuration),
        AgentChannel{SerialQueue(pool, "fuzz"), std::make_shared<Mailbox>(main_),
                     [this](const auto& event, std::size_t) { event(listener_); }},
        std::forward<Rest>(rest)...);
  }

  void prompt() {
    ++prompts_;
    connection_->sendPrompt("text", once<JsonObject>([this] {
                              // An owner may go on from within a completion.
                              if (prompts_ < 64) prompt();
                            }));
  }
  /// The completion of something that was begun.
  template <typename Value>
  std::function<void(std::expected<Value, AgentError>)> once(std::function<void()> then = {}) {
    ++begun_;
    return [this, then,
            calls = std::make_shared<int>(0)](const std::expected<Value, AgentError>& result) {
      require(++*calls == 1);
      if (!result) checkFailure(result.error());
      ++ends_;
      if (then) then();
    };
  }
  AgentClient::StartCompletion onceStarted(std::function<void(const AgentStartResult&)> check) {
    return [this, check](const std::expected<AgentStartResult, AgentError>& result) {
      require(++starts_ == 1);
      result ? check(*result) : checkFailure(result.error());
    };
  }

  /// What the owner does beside the above; false when this is no word of it.
  virtual bool ownerDoes(std::string_view word) = 0;
  virtual void checkFailure(const AgentError& /*error*/) {}

  ManualMainQueue main_;
  Listener listener_;
  std::shared_ptr<Connection> connection_;
  std::int64_t lastQuestion_ = 0;

 private:
  int starts_ = 0;
  int prompts_ = 0;
  int begun_ = 0;
  int ends_ = 0;
};

template <typename Driver>
int run(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  Driver driver(data[0]);
  LineBuffer lines;
  lines.consume(std::string_view(reinterpret_cast<const char*>(data) + 1, size - 1),
                [&driver](std::string_view line) { driver.line(line); });
  driver.finish();
  return 0;
}

}  // namespace vantrell::fuzz
