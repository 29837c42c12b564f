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

    AgentEvents events = this->events();
    events.sessionUpdates = [](const std::vector<JsonObject>& updates, std::size_t) {
      for (const auto& update : updates) json::write(update);
    };
    events.permissionRequest = [this](PermissionRequest request, std::size_t) {
      lastQuestion_ = request.id;
    };
    events.replayStarted = [this] { require(++replaysStarted_ == 1); };
    events.replayFailed = [this] { require(++replaysFailed_ <= replaysStarted_); };
    events.modelOptions = [](std::vector<ProviderModelOption> options) {
      require(options.size() >= 2 && options.front().id == "default");
    };
    connect(std::move(configuration), std::move(events), std::unique_ptr<ACPHostServices>());
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
