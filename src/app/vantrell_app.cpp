#include "app/vantrell_app.h"

#include <fmt/format.h>

#include "app/ports.h"
#include "app/runtime_means.h"
#include "runtimes/acp/acp_client.h"
#include "runtimes/catalog/locators.h"

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
    configuration.processEnvironment = configuration.terminalEnvironment =
        GrokLocator::augmentedEnvironment();
    configuration.runtimeName = "The practice agent";
    return ACPClient::make(std::move(configuration), main, pool);
  };
  connector.modelOptions = [](const auto&) {
    return std::vector{ProviderModelOption::defaultOption({ProviderEffortOption::defaultOption()})};
  };
  // What helps with local models is no help with this one.
  connector.advice = [](const std::string& description) { return description; };
  return connector;
}

}  // namespace

std::expected<std::unique_ptr<VantrellApp>, std::string> VantrellApp::start(
    MainQueue& main, VantrellOptions options) {
  auto state = UserState::open({options.supportFolder, options.configFolder}, main.now());
  if (!state) return std::unexpected(std::move(state.error()));
  return std::unique_ptr<VantrellApp>(new VantrellApp(main, std::move(options), std::move(*state)));
}

VantrellApp::VantrellApp(MainQueue& main, VantrellOptions options, UserState state)
    : main_(main),
      state_(std::move(state)),
      store_(*state_.defaults, state_.folders.support),
      secrets_(state_.folders.secretStore(), main, pool_),
      runner_(std::make_shared<ProgramRunner>(main, pool_)),
      services_(main, *state_.defaults, secrets_),
      connectors_(
          {.main = main,
           .pool = pool_,
           .defaults = *state_.defaults,
           .http = services_.http(),
           .webhook = services_.webhook(),
           .customExecutable = executableChoice(options.customExecutable, *state_.defaults)}),
      practices_(options.practiceAgent.has_value()) {
  if (options.practiceAgent) {
    connectors_.replace(practiceConnector(main_, pool_, *options.practiceAgent));
  }
  EnginePorts ports = enginePorts(main_, pool_, connectors_);
  ports.runtimes =
      runtimeMeans(runner_, pool_, executableChoice(options.customExecutable, *state_.defaults));
  if (options.desktop) ports.runtimes.desktop = std::move(options.desktop);
  ports.runtimes.refreshesAtStart = options.refreshesRuntimes;
  ports.imagine = {.supportFolder = state_.folders.support, .background = &pool_};
  if (!options.keepsGitPicture) ports.gitSnapshot = neutralPorts().gitSnapshot;
  ports.localRuntimeStatus = [this] { return services_.localRuntime().status(); };
  ports.isTaskletConfigured = [this] { return services_.webhook()->isConfigured(); };
  ports.isSetupKnown = [this](AgentProvider provider) {
    return (practices_ && provider == AgentProvider::local) || services_.isKnown(provider);
  };
  ports.findOutSetup = [this](AgentProvider provider, EnginePorts::Done done) {
    services_.prepare(provider, std::move(done));
  };
  ports.refreshLocalRuntime = [this] { services_.localRuntime().refresh(); };
  ports.saveTaskletWebhook = [this](const std::string& text, std::function<void(bool)> reply) {
    services_.webhook()->save(text, std::move(reply));
  };
  if (ports.runtimes.refreshesAtStart) {
    ports.loadTasklet = [this] {
      services_.webhook()->load(
          [this] { model_->changes.announce({.kind = Change::Kind::runtimesChanged}); });
    };
  }
  ports.taskSafety = {.background = &pool_, .supportFolder = state_.folders.support};
  ports.captureCheckpoint = [this](const ThreadExecutionKey& key, std::string label,
                                   WorkspaceCheckpointKind, EnginePorts::Done done) {
    model_->safety->captureBeforePrompt(key, std::move(label), std::move(done));
  };
  model_ = std::make_unique<AppModel>(main_, *state_.defaults, store_, std::move(ports), &writer_);
  services_.onLocalRuntimeChanged = [this] { model_->catalog->localRuntimeChanged(); };
  notice_ = std::move(state_.notice);
  if (const auto& met = store_.notice()) notice_ = notice_ ? *notice_ + " " + *met : *met;
}

// The model first: it ends the clients, which need all the rest.
VantrellApp::~VantrellApp() {
  services_.onLocalRuntimeChanged = nullptr;
  model_.reset();
}

std::expected<std::unique_ptr<UserDefaults>, std::string> VantrellApp::defaultsForReading() {
  const std::string path = UserFolders{}.orOwn().defaultsPath();
  if (!files::exists(path)) return UserDefaults::inMemory();
  return UserDefaults::open(path);
}

}  // namespace vantrell
