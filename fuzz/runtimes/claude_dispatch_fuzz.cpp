// What Claude Code may send. No question has the number of another, and with full access nobody is
// asked.
#include "runtimes/claude/claude_connection.h"
#include "runtimes/dispatch_driver.h"

namespace {

using namespace vantrell;
using fuzz::require;

class Driver final : public fuzz::DispatchDriver<ClaudeConnection> {
 public:
  explicit Driver(std::uint8_t choice) {
    AgentConfiguration configuration;
    configuration.permissionMode = static_cast<GrokPermissionMode>((choice & 3) % 3);
    configuration.model = "sonnet";
    const bool asks = configuration.permissionMode != GrokPermissionMode::fullAccess;

    listener_.onSessionUpdate = [](const JsonObject& update) {
      require(json::text(update, "sessionUpdate") != nullptr);
      require(json::text(update, "messageId") || json::text(update, "toolCallId"));
    };
    listener_.onPermissionRequest = [this, asks](const PermissionRequest& request) {
      // One that was withdrawn before its turn is left out.
      require(asks && request.id >= 100000 && request.id > lastQuestion_);
      require(request.options.size() == 2);
      lastQuestion_ = request.id;
    };
    listener_.onReplayStarted = [] { std::abort(); };
    listener_.onReplayFailed = [] { std::abort(); };
    listener_.onLog = [](std::string text) { require(text.ends_with('\n')); };
    listener_.onUsageUpdate = [](ProviderUsage usage) {
      require(usage.provider == AgentProvider::claude);
    };
    connect(std::move(configuration));
    connection_->initialize("s1", onceStarted([](const AgentStartResult& result) {
                              require(result.sessionId == "s1");
                            }));
  }

 private:
  bool ownerDoes(std::string_view word) override {
    if (word != "!allow" && word != "!deny") return false;
    connection_->respondToPermission(lastQuestion_,
                                     word == "!allow" ? "claude-allow-once" : "claude-deny");
    return true;
  }
  void checkFailure(const AgentError& error) override {
    require(!error.runtimeError() || error.runtimeError()->provider == AgentProvider::claude);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::run<Driver>(data, size);
}
