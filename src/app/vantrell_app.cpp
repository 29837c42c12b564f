#include "app/vantrell_app.h"

#include <fmt/format.h>

#include "app/ports.h"
#include "app/runtime_means.h"
#include "records/application.h"
#include "runtimes/acp/acp_client.h"
#include "runtimes/locators.h"
#include "runtimes/runtime_locator.h"

namespace vantrell {

namespace {

constexpr std::string_view defaultsName = "defaults.sqlite";

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
  const std::string support = options.supportFolder.empty()
                                  ? files::standardized(applicationName, files::dataFolder())
                                  : options.supportFolder;
  const std::string config = options.configFolder.empty()
                                 ? files::standardized(applicationName, files::configFolder())
                                 : options.configFolder;
  for (const auto& folder : {support, config}) {
    if (const auto made = files::createOwnerOnlyFolder(folder); !made) {
      return std::unexpected(fmt::format(
          "Vantrell cannot keep its state: {}. Make the folder writable, or name another one with "
          "XDG_DATA_HOME and XDG_CONFIG_HOME.",
          made.error().description));
    }
  }
  auto lock = files::LockFile::acquire(support + "/lock");
  if (!lock) {
    if (lock.error().error) return std::unexpected(lock.error().error->description);
    const auto holder = lock.error().holder;
    return std::unexpected(fmt::format(
        "Vantrell is already running{}. Nothing was changed; use that one, or end it first.",
        holder ? fmt::format(" (process {})", *holder) : ""));
  }
  auto defaults = UserDefaults::open(config + "/" + std::string(defaultsName));
  if (!defaults) return std::unexpected(std::move(defaults.error()));
  return std::unique_ptr<VantrellApp>(
      new VantrellApp(main, std::move(options), std::move(*lock), std::move(*defaults), support));
}

VantrellApp::VantrellApp(MainQueue& main, VantrellOptions options, files::LockFile lock,
                         std::unique_ptr<UserDefaults> defaults, std::string supportFolder)
    : main_(main),
      lock_(std::move(lock)),
      defaults_(std::move(defaults)),
      store_(*defaults_, std::move(supportFolder)),
      runner_(std::make_shared<ProgramRunner>(main, pool_)),
      connectors_(main, pool_, *defaults_, executableChoice(options.customExecutable, *defaults_)) {
  if (options.practiceAgent) {
    connectors_.replace(practiceConnector(main_, pool_, *options.practiceAgent));
  }
  EnginePorts ports = enginePorts(connectors_, frontDoorProvider);
  ports.runtimes = runtimeMeans(runner_, executableChoice(options.customExecutable, *defaults_));
  if (options.desktop) ports.runtimes.desktop = std::move(options.desktop);
  ports.runtimes.refreshesAtStart = options.refreshesRuntimes;
  model_ = std::make_unique<AppModel>(main_, *defaults_, store_, std::move(ports));
}

// The model first: it ends the clients, which need all the rest.
VantrellApp::~VantrellApp() {
  model_.reset();
}

std::unique_ptr<UserDefaults> VantrellApp::defaultsForReading() {
  const std::string path =
      files::standardized(applicationName, files::configFolder()) + "/" + std::string(defaultsName);
  if (!files::exists(path)) return UserDefaults::inMemory();
  auto opened = UserDefaults::open(path);
  return opened ? std::move(*opened) : UserDefaults::inMemory();
}

std::optional<std::string> VantrellApp::setCustomExecutable(AgentProvider provider,
                                                            const std::string& path) {
  const auto key = customPathKey(provider);
  const bool isStored = path.empty() ? defaults_->remove(key) : defaults_->setText(key, path);
  return isStored ? std::nullopt : std::optional(defaults_->lastError());
}

bool VantrellApp::isAvailable(AgentProvider provider) const {
  return connectors_.connector(provider).isAvailable({});
}

}  // namespace vantrell
