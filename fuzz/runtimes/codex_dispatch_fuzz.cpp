// What a Codex app-server may send. Every failure has its kind, and no question is without its
// words.
#include "runtimes/codex/codex_connection.h"
#include "runtimes/dispatch_driver.h"

namespace {

using namespace vantrell;
using fuzz::require;

class Driver final : public fuzz::DispatchDriver<CodexConnection> {
 public:
  explicit Driver(std::uint8_t choice) {
    AgentConfiguration configuration;
    configuration.permissionMode = static_cast<GrokPermissionMode>((choice & 3) % 3);
    if (choice & 4) configuration.model = "gpt-5.5";
    configuration.workspacePath = "/project";

    listener_.onSessionUpdate = [](const JsonObject& update) {
      require(json::text(update, "sessionUpdate"));
      json::write(update);
    };
    listener_.onPermissionRequest = [this](const PermissionRequest& request) {
      require(request.id > lastQuestion_);
      require(!request.title.empty() && !request.detail.empty() && request.options.size() == 3);
      lastQuestion_ = request.id;
    };
    listener_.onUsageUpdate = [](const ProviderUsage& usage) {
      require(usage.provider == AgentProvider::codex);
      require(usage.exhausted || (usage.primaryUsedPercent.value_or(0) < 100 &&
                                  usage.secondaryUsedPercent.value_or(0) < 100));
    };
    listener_.onReplayStarted = [] { std::abort(); };
    listener_.onReplayFailed = [] { std::abort(); };
    listener_.onModelOptionsUpdate = [](std::vector<ProviderModelOption>) { std::abort(); };
    connect(std::move(configuration));
    const bool resumes = choice & 8;
    connection_->initialize(resumes ? std::optional<std::string>("old") : std::nullopt,
                            onceStarted([resumes](const AgentStartResult& result) {
                              require(resumes || !result.replayedSession);
                            }));
  }

 private:
  bool ownerDoes(std::string_view word) override {
    if (word == "!answer") {
      connection_->respondToPermission(lastQuestion_, "codex-allow-session");
    } else if (word == "!usage") {
      connection_->refreshUsage();
    } else if (word == "!reset") {
      connection_->consumeUsageReset(once<std::string>());
    } else {
      return false;
    }
    return true;
  }
  void checkFailure(const AgentError& error) override {
    require(error.runtimeError() && error.runtimeError()->provider == AgentProvider::codex);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::run<Driver>(data, size);
}
