// What an ACP runtime may send. A replay begins once and fails only after it began.
#include "runtimes/acp/acp_connection.h"
#include "runtimes/acp/acp_host_services.h"
#include "runtimes/dispatch_driver.h"

namespace {

using namespace vantrell;
using fuzz::require;

class Driver final : public fuzz::DispatchDriver<ACPConnection> {
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

    listener_.onSessionUpdate = [](const JsonObject& update) { json::write(update); };
    listener_.onPermissionRequest = [this](const PermissionRequest& request) {
      lastQuestion_ = request.id;
    };
    listener_.onReplayStarted = [this] { require(++replaysStarted_ == 1); };
    listener_.onReplayFailed = [this] { require(++replaysFailed_ <= replaysStarted_); };
    listener_.onModelOptionsUpdate = [](std::vector<ProviderModelOption> options) {
      require(options.size() >= 2 && options.front().id == "default");
    };
    connect(std::move(configuration), std::unique_ptr<ACPHostServices>());
    connection_->initialize(choice & 32 ? std::optional<std::string>("old") : std::nullopt,
                            onceStarted([this](const AgentStartResult& result) {
                              require(!result.replayedSession || replaysStarted_ == 1);
                            }));
  }

 private:
  bool ownerDoes(std::string_view word) override {
    if (word != "!answer") return false;
    connection_->respondToPermission(lastQuestion_, "yes");
    return true;
  }

  int replaysStarted_ = 0;
  int replaysFailed_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::run<Driver>(data, size);
}
