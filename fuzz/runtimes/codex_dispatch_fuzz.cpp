// What a Codex app-server may send, in any order, to a client that has a start, prompts and
// approvals open. The first byte chooses the mode and whether a thread is to be resumed; then each
// line is a message, or with "!" in front something that the client's owner does.
//
// No completion may come twice, all must have come after a stop, every failure has its kind, and
// no question is without its words.
#include <cstdint>
#include <cstdlib>

#include "platform/mailbox.h"
#include "platform/manual_main_queue.h"
#include "runtimes/codex/codex_connection.h"
#include "runtimes/line_buffer.h"

namespace {

using namespace vantrell;

void require(bool holds) {
  if (!holds) std::abort();
}

template <typename Value>
void requireKind(const std::expected<Value, AgentError>& result) {
  require(result || (result.error().runtimeError() &&
                     result.error().runtimeError()->provider == AgentProvider::codex));
}

class Driver {
 public:
  explicit Driver(std::uint8_t choice) {
    CodexConfiguration configuration;
    configuration.permissionMode = static_cast<GrokPermissionMode>((choice & 3) % 3);
    if (choice & 4) configuration.model = "gpt-5.5";
    configuration.workspacePath = "/project";

    AgentEvents events;
    events.sessionUpdates = [](const std::vector<JsonObject>& updates, std::size_t) {
      for (const auto& update : updates) {
        require(json::text(update, "sessionUpdate"));
        json::write(update);
      }
    };
    events.permissionRequest = [this](PermissionRequest request, std::size_t) {
      require(request.id == lastQuestion_ + 1);
      require(!request.title.empty() && !request.detail.empty() && request.options.size() == 3);
      lastQuestion_ = request.id;
    };
    events.usage = [](const ProviderUsage& usage) {
      require(usage.provider == AgentProvider::codex);
      require(usage.exhausted || (usage.primaryUsedPercent.value_or(0) < 100 &&
                                  usage.secondaryUsedPercent.value_or(0) < 100));
    };
    events.replayStarted = [] { std::abort(); };
    events.replayFailed = [] { std::abort(); };
    events.modelOptions = [](std::vector<ProviderModelOption>) { std::abort(); };
    events.unexpectedTermination = [](std::string) { std::abort(); };  // there is no process
    static BackgroundPool pool(1);
    connection_ =
        std::make_shared<CodexConnection>(std::move(configuration), SerialQueue(pool, "fuzz"),
                                          std::make_shared<Mailbox>(main_), std::move(events));
    const bool resumes = choice & 8;
    connection_->initialize(resumes ? std::optional<std::string>("old") : std::nullopt,
                            [this, resumes](std::expected<AgentStartResult, AgentError> result) {
                              require(++starts_ == 1);
                              requireKind(result);
                              require(!result || resumes || !result->replayedSession);
                            });
  }

  void prompt() {
    ++prompts_;
    auto ends = std::make_shared<int>(0);
    connection_->sendPrompt("text", [this, ends](std::expected<JsonObject, AgentError> result) {
      require(++*ends == 1);
      requireKind(result);
      ++promptEnds_;
      // An owner may go on from within a completion.
      if (prompts_ < 64) prompt();
    });
  }

  void reset() {
    ++resets_;
    auto ends = std::make_shared<int>(0);
    connection_->consumeUsageReset([this, ends](std::expected<std::string, AgentError> result) {
      require(++*ends == 1);
      requireKind(result);
      ++resetEnds_;
    });
  }

  void line(std::string_view text) {
    if (text == "!prompt") {
      prompt();
    } else if (text == "!cancel") {
      connection_->cancel();
    } else if (text == "!answer") {
      connection_->respondToPermission(lastQuestion_, "codex-allow-session");
    } else if (text == "!usage") {
      connection_->refreshUsage();
    } else if (text == "!reset") {
      reset();
    } else if (text == "!read") {
      connection_->handOutUpdates();
    } else if (text == "!stop") {
      connection_->stop();
    } else if (auto message = json::parseObject(text)) {
      connection_->handle(std::move(*message), text.size());
    }
  }

  void finish() {
    connection_->stop();
    require(starts_ == 1);
    require(promptEnds_ == prompts_);
    require(resetEnds_ == resets_);
  }

 private:
  ManualMainQueue main_;
  std::shared_ptr<CodexConnection> connection_;
  std::int64_t lastQuestion_ = 0;
  int starts_ = 0;
  int prompts_ = 0;
  int promptEnds_ = 0;
  int resets_ = 0;
  int resetEnds_ = 0;
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
