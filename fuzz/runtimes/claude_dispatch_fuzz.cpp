// What Claude Code may send, in any order, to a client that has a start, prompts and permission
// questions open. The first byte chooses the mode and whether a session is resumed; then each line
// is a message, or with "!" in front something that the client's owner does.
//
// No completion may come twice, all must have come after a stop, no question has a number of
// another, and with full access nobody is asked.
#include <cstdint>
#include <cstdlib>

#include "platform/mailbox.h"
#include "platform/manual_main_queue.h"
#include "runtimes/claude/claude_connection.h"
#include "runtimes/line_buffer.h"

namespace {

using namespace vantrell;

void require(bool holds) {
  if (!holds) std::abort();
}

class Driver {
 public:
  explicit Driver(std::uint8_t choice) {
    ClaudeConfiguration configuration;
    configuration.permissionMode = static_cast<GrokPermissionMode>((choice & 3) % 3);
    configuration.model = "sonnet";
    const bool asks = configuration.permissionMode != GrokPermissionMode::fullAccess;

    AgentEvents events;
    events.sessionUpdates = [](const std::vector<JsonObject>& updates, std::size_t) {
      for (const auto& update : updates) {
        require(json::text(update, "sessionUpdate") != nullptr);
        require(json::text(update, "messageId") || json::text(update, "toolCallId"));
      }
    };
    events.permissionRequest = [this, asks](PermissionRequest request, std::size_t) {
      require(asks && request.id == 100000 + questions_++);
      require(request.options.size() == 2);
      lastQuestion_ = request.id;
    };
    events.replayStarted = [] { std::abort(); };
    events.replayFailed = [] { std::abort(); };
    events.unexpectedTermination = [](std::string) { std::abort(); };  // there is no process
    events.log = [](std::string text) { require(text.ends_with('\n')); };
    events.usage = [](ProviderUsage usage) { require(usage.provider == AgentProvider::claude); };
    static BackgroundPool pool(1);
    connection_ =
        std::make_shared<ClaudeConnection>(std::move(configuration), SerialQueue(pool, "fuzz"),
                                           std::make_shared<Mailbox>(main_), std::move(events));
    connection_->initialize({"s1", (choice & 4) != 0},
                            [this](std::expected<AgentStartResult, AgentError> result) {
                              require(++starts_ == 1);
                              require(!result || result->sessionId == "s1");
                            });
  }

  void prompt() {
    ++prompts_;
    auto ends = std::make_shared<int>(0);
    connection_->sendPrompt("text", [this, ends](std::expected<JsonObject, AgentError> result) {
      require(++*ends == 1);
      require(result || !result.error().runtimeError() ||
              result.error().runtimeError()->provider == AgentProvider::claude);
      ++promptEnds_;
      // An owner may go on from within a completion.
      if (prompts_ < 64) prompt();
    });
  }

  void line(std::string_view text) {
    if (text == "!prompt") {
      prompt();
    } else if (text == "!cancel") {
      connection_->cancel();
    } else if (text == "!allow" || text == "!deny") {
      connection_->respondToPermission(lastQuestion_,
                                       text == "!allow" ? "claude-allow-once" : "claude-deny");
    } else if (text == "!stop") {
      connection_->stop();
    } else if (auto message = json::parseObject(text)) {
      connection_->handle(std::move(*message), text.size());
    } else {
      connection_->handleOtherLine(text);
    }
  }

  void finish() {
    connection_->stop();
    require(starts_ == 1);
    require(promptEnds_ == prompts_);
  }

 private:
  ManualMainQueue main_;
  std::shared_ptr<ClaudeConnection> connection_;
  std::int64_t lastQuestion_ = 0;
  std::int64_t questions_ = 0;
  int starts_ = 0;
  int prompts_ = 0;
  int promptEnds_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  Driver driver(data[0]);
  vantrell::LineBuffer lines;
  lines.consume(std::string_view(reinterpret_cast<const char*>(data) + 1, size - 1),
                [&driver](std::string_view line) { driver.line(line); });
  driver.finish();
  return 0;
}
