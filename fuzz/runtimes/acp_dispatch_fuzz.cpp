// What a runtime may send, in any order, to a client that has a start, prompts and permission
// questions open. The first byte chooses provider, mode and whether a session is to be replayed;
// then each line is a message, or with "!" in front something that the client's owner does.
//
// No completion may come twice, all must have come after a stop, and a replay fails only after it
// began.
#include <cstdint>
#include <cstdlib>

#include "platform/mailbox.h"
#include "platform/manual_main_queue.h"
#include "runtimes/acp/acp_connection.h"
#include "runtimes/acp/acp_host_services.h"
#include "runtimes/line_buffer.h"

namespace {

using namespace vantrell;

void require(bool holds) {
  if (!holds) std::abort();
}

class Driver {
 public:
  explicit Driver(std::uint8_t choice) {
    constexpr AgentProvider providers[] = {AgentProvider::grok, AgentProvider::kimi,
                                           AgentProvider::glm, AgentProvider::local};
    ACPConfiguration configuration;
    configuration.provider = providers[choice & 3];
    configuration.permissionMode = static_cast<GrokPermissionMode>(((choice >> 2) & 3) % 3);
    if (choice & 16) configuration.model = "zai-coding-plan/glm-4.7";
    configuration.workspacePath = "/project";
    configuration.runtimeName = "Runtime";

    AgentEvents events;
    events.sessionUpdates = [](const std::vector<JsonObject>& updates, std::size_t) {
      for (const auto& update : updates) json::write(update);
    };
    events.permissionRequest = [this](PermissionRequest request, std::size_t) {
      lastQuestion_ = request.id;
    };
    events.replayStarted = [this] { require(++replaysStarted_ == 1); };
    events.replayFailed = [this] { require(++replaysFailed_ <= replaysStarted_); };
    events.unexpectedTermination = [](std::string) { std::abort(); };  // there is no process
    events.modelOptions = [](std::vector<ProviderModelOption> options) {
      require(options.size() >= 2 && options.front().id == "default");
    };
    static BackgroundPool pool(1);
    connection_ = std::make_shared<ACPConnection>(
        std::move(configuration), SerialQueue(pool, "fuzz"), std::make_shared<Mailbox>(main_),
        std::move(events), std::unique_ptr<ACPHostServices>());
    connection_->initialize(choice & 32 ? std::optional<std::string>("old") : std::nullopt,
                            [this](std::expected<AgentStartResult, AgentError> result) {
                              require(++starts_ == 1);
                              require(!result || !result->replayedSession || replaysStarted_ == 1);
                            });
  }

  void prompt() {
    ++prompts_;
    auto ends = std::make_shared<int>(0);
    connection_->sendPrompt("text", [this, ends](std::expected<JsonObject, AgentError>) {
      require(++*ends == 1);
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
    } else if (text == "!answer") {
      connection_->respondToPermission(lastQuestion_, "yes");
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
  }

 private:
  ManualMainQueue main_;
  std::shared_ptr<ACPConnection> connection_;
  std::int64_t lastQuestion_ = 0;
  int starts_ = 0;
  int prompts_ = 0;
  int promptEnds_ = 0;
  int replaysStarted_ = 0;
  int replaysFailed_ = 0;
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
