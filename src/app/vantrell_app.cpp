#include "app/vantrell_app.h"

#include <fmt/format.h>

#include "app/ports.h"
#include "app/state_folders.h"
#include "records/application.h"
#include "runtimes/acp/acp_client.h"
#include "runtimes/runtime_locator.h"

namespace vantrell {

namespace {

/// The practice agent in the place of local models: like them it needs no subscription.
ProviderConnector practiceConnector(MainQueue& main, BackgroundPool& pool, std::string executable) {
  ProviderConnector connector;
  connector.provider = AgentProvider::local;
  connector.setupHint =
      fmt::format("The practice agent is missing: {}. Build it with ./run.", executable);
  connector.isAvailable = [executable](const auto&) { return files::isExecutable(executable); };
  connector.makeClient =
      [&main, &pool,
       executable](const ProviderConnectorContext& context) -> std::shared_ptr<AgentClient> {
    if (!files::isExecutable(executable)) return nullptr;
    ACPConfiguration configuration;
    configuration.provider = AgentProvider::local;
    configuration.executable = executable;
    configuration.workspacePath = context.workspacePath;
    configuration.permissionMode = context.permissionMode;
    configuration.processArguments = {"acp"};
    configuration.processEnvironment = GrokLocator::augmentedEnvironment();
    configuration.runtimeName = "The practice agent";
    return ACPClient::make(std::move(configuration), main, pool);
  };
  // What helps with local models is no help with this one.
  connector.advice = [](const std::string& description) { return description; };
  return connector;
}

}  // namespace

std::expected<std::unique_ptr<VantrellApp>, std::string> VantrellApp::start(
    MainQueue& main, VantrellOptions options) {
  auto folders = StateFolders::make(options.supportFolder, options.configFolder);
  if (!folders) return std::unexpected(std::move(folders.error()));
  auto lock = lockState(*folders);
  if (!lock) return std::unexpected(std::move(lock.error()));
  auto defaults = UserDefaults::open(folders->settingsFile());
  if (!defaults) return std::unexpected(std::move(defaults.error()));
  return std::unique_ptr<VantrellApp>(new VantrellApp(main, std::move(options), std::move(*lock),
                                                      std::move(*defaults), folders->support));
}

VantrellApp::VantrellApp(MainQueue& main, VantrellOptions options, files::LockFile lock,
                         std::unique_ptr<UserDefaults> defaults, std::string supportFolder)
    : main_(main),
      lock_(std::move(lock)),
      defaults_(std::move(defaults)),
      store_(*defaults_, std::move(supportFolder)),
      connectors_(
          main, pool_,
          options.customExecutable
              ? std::move(options.customExecutable)
              : [](AgentProvider) -> std::optional<std::string> { return std::nullopt; }) {
  if (options.practiceAgent) {
    connectors_.replace(practiceConnector(main_, pool_, *options.practiceAgent));
  }
  model_ = std::make_unique<AppModel>(main_, *defaults_, store_,
                                      enginePorts(connectors_, frontDoorProvider), &writer_);
}

// The model first: it ends the clients, which need all the rest.
VantrellApp::~VantrellApp() {
  model_.reset();
}

bool VantrellApp::isAvailable(AgentProvider provider) const {
  return connectors_.connector(provider).isAvailable({});
}

}  // namespace vantrell
