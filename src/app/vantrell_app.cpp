#include "app/vantrell_app.h"

#include "app/app_parts.h"
#include "app/automation_hosts.h"
#include "app/doctor_sources.h"
#include "app/engine_event_relay.h"
#include "automations/automations_module.h"
#include "discovery/session_import.h"
#include "doctor/doctor.h"
#include "engine/core/settings.h"
#include "engine/projects/local_project_services.h"
#include "fleet/fleet_module.h"
#include "gateway/gateway_module.h"
#include "platform/desktop/system_desktop.h"
#include "platform/files/files.h"
#include "platform/process/login_shell.h"
#include "platform/process/program_runner.h"
#include "platform/sockets/own_address.h"
#include "platform/storage/user_defaults.h"
#include "platform/terminal/terminal.h"
#include "remote/host/remote_access.h"
#include "remote/protocol/relay_setting.h"
#include "runtimes/catalog/runtime_locator.h"
#include "updates/update_module.h"

namespace vantrell {

RuntimePrograms VantrellApp::programsOfThisSession(MainQueue& main, BackgroundPool& pool,
                                                   std::shared_ptr<Desktop> desktop,
                                                   const UserDefaults& defaults) {
  const auto runner = std::make_shared<ProgramRunner>(main, pool);
  RuntimePrograms programs;
  programs.runner = runner;
  programs.pool = &pool;
  programs.desktop = desktop ? std::move(desktop) : SystemDesktop::ofThisSession(runner);
  programs.customExecutable = [&defaults](AgentProvider provider) {
    return customExecutablePath(defaults, provider);
  };
  programs.readUserPath = [runner](std::function<void()> done) {
    loginShell::readFolders(*runner, loginShell::usersOwn(),
                            [done = std::move(done)](std::vector<std::string> folders) {
                              loginShell::keepFolders(std::move(folders));
                              done();
                            });
  };
  return programs;
}

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
      services_({.main = main, .pool = pool_, .defaults = *state_.defaults, .secrets = secrets_}),
      projects_(std::make_unique<LocalProjectServices>(main, pool_, options.readsGitSnapshot)),
      programs_(programsOfThisSession(main, pool_, std::move(options.desktop), *state_.defaults)),
      events_(std::make_unique<EngineEventRelay>(options.events)),
      model_(std::make_unique<AppModel>(
          AppModel::Dependencies{.main = main,
                                 .defaults = *state_.defaults,
                                 .store = store_,
                                 .providers = services_,
                                 .projects = *projects_,
                                 .events = *events_,
                                 .programs = programs_,
                                 .supportFolder = state_.folders.support,
                                 .writer = &writer_,
                                 .background = &pool_,
                                 .refreshesRuntimes = options.refreshesRuntimes})),
      notice_(std::move(state_.notice)) {
  if (const auto& met = store_.notice()) notice_ = notice_ ? *notice_ + " " + *met : *met;
}

// What ends agents first: they need all the rest.
VantrellApp::~VantrellApp() {
  events_->setRemote(nullptr);
  remote_.reset();
  automations_.reset();
  doctor_.reset();
  updates_.reset();
  sessionImport_.reset();
  gateway_.reset();
  fleet_.reset();
  model_.reset();
}

bool VantrellApp::flush() {
  const bool isModelSaved = model_->flush();
  const bool isGatewaySaved = !gateway_ || gateway_->store.flush();
  const bool isFleetSaved = !fleet_ || fleet_->fleet->flush();
  const bool areRecipesSaved = !automations_ || automations_->automations->flush();
  return areRecipesSaved && isModelSaved && isGatewaySaved && isFleetSaved;
}

Automations& VantrellApp::automations() {
  if (!automations_) {
    AppParts& parts = model_->parts();
    automations_ = std::make_unique<AutomationsModule>(
        AutomationsModule::Dependencies{.main = main_,
                                        .changes = parts.changes,
                                        .tree = parts.tree,
                                        .operations = *parts.operations,
                                        .composer = *parts.composer,
                                        .executions = parts.executions,
                                        .files = parts.orchestration,
                                        .writer = writer_,
                                        .background = pool_});
    automationHosts_ = std::make_unique<AutomationHosts>(fleet());
    automations_->automations->setFleet(automationHosts_.get());
  }
  return *automations_->automations;
}

bool VantrellApp::runsAutomations() const {
  return automations_ && automations_->automations->isScheduling();
}

GatewayModule& VantrellApp::gateway() {
  if (!gateway_) {
    gateway_ = std::make_unique<GatewayModule>(
        GatewayModule::Dependencies{.main = main_,
                                    .changes = model_->changes(),
                                    .tree = model_->tree(),
                                    .settings = model_->settings(),
                                    .providers = services_,
                                    .pool = pool_,
                                    .supportFolder = state_.folders.support});
    gateway_->load();
  }
  return *gateway_;
}

SessionImport& VantrellApp::sessionImport() {
  if (!sessionImport_) {
    sessionImport_ = std::make_unique<SessionImport>(
        SessionImport::Dependencies{.main = main_,
                                    .changes = model_->changes(),
                                    .settings = model_->settings(),
                                    .tree = model_->tree(),
                                    .operations = model_->operations()},
        ExternalSessionCatalog::Dependencies{.main = main_,
                                             .pool = pool_,
                                             .runner = programs_.runner,
                                             .customExecutable = programs_.customExecutable});
  }
  return *sessionImport_;
}

FleetModule& VantrellApp::fleet() {
  if (!fleet_) {
    fleet_ =
        std::make_unique<FleetModule>(Fleet::Dependencies{.main = main_,
                                                          .pool = pool_,
                                                          .changes = model_->changes(),
                                                          .secrets = secrets_,
                                                          .store = model_->orchestration()},
                                      ThisMachine::Dependencies{.main = main_,
                                                                .tree = model_->tree(),
                                                                .settings = model_->settings(),
                                                                .selection = model_->selection(),
                                                                .executions = model_->executions(),
                                                                .router = model_->router()});
  }
  return *fleet_;
}

RemoteAccess& VantrellApp::remote() {
  if (!remote_) {
    AppParts& parts = model_->parts();
    remote_ = std::make_unique<RemoteAccess>(RemoteAccess::Dependencies{
        .pool = pool_,
        .changes = parts.changes,
        .settings = parts.settings,
        .places = {state_.folders.support, secrets_, *state_.defaults},
        .reader = &writer_,
        .sources = {.main = main_,
                    .tree = parts.tree,
                    .settings = parts.settings,
                    .selection = parts.selection,
                    .executions = parts.executions,
                    .usage = model_->usage(),
                    .controls = model_->controls(),
                    .router = model_->router(),
                    .imagine = model_->imagine(),
                    .context = model_->context(),
                    .isGeneral =
                        [this](const Uuid& id) { return model_->navigation().isGeneral(id); },
                    .hostName = nameOfThisComputer(),
                    .addFeatures = [this](RemoteSnapshot& snapshot) { addFeatures(snapshot); }},
        .engine = {.tree = parts.tree,
                   .selection = parts.selection,
                   .executions = parts.executions,
                   .operations = model_->operations(),
                   .navigation = model_->navigation(),
                   .composer = model_->composer(),
                   .queue = model_->queue(),
                   .branches = model_->branches(),
                   .approvals = model_->approvals(),
                   .controls = model_->controls(),
                   .router = model_->router(),
                   .safety = model_->safety(),
                   .usageReset = model_->usageReset(),
                   .context = model_->context(),
                   .imagine = model_->imagine()},
        .server = {.relayURL = remoteRelayURL(*state_.defaults)},
        .requestUpdate = [this] { updates().controller->requestUpdate(); },
        .decideUpdate =
            [this](const std::string& decision) {
              if (const auto known = fromRawText<HostUpdateDecision>(decision)) {
                updates().controller->resolveSafetyDecision(*known);
              }
            }});
    events_->setRemote(remote_.get());
  }
  return *remote_;
}

/// What a snapshot says of the features beside the engine.
void VantrellApp::addFeatures(RemoteSnapshot& snapshot) {
  auto& hosts = snapshot.fleetHosts.emplace();
  for (const auto& host : fleet().thisMachine.fleetOverview(*fleet().fleet)) {
    hosts.push_back({host.id.text(), host.name, std::string(rawText(host.platform)),
                     std::string(rawText(host.status)), host.capabilities});
  }
  snapshot.updateStatus = updates().controller->remoteStatus();
  if (doctor_ && doctor_->diagnosticReport()) {
    snapshot.diagnosticIssueCount =
        static_cast<std::int64_t>(doctor_->diagnosticReport()->issueCount());
  }
  snapshot.automationCount = static_cast<std::int64_t>(automations().automations().size());
}

UpdateModule& VantrellApp::updates() {
  if (!updates_) {
    updates_ = std::make_unique<UpdateModule>(
        UpdateModule::Dependencies{.main = main_,
                                   .changes = model_->changes(),
                                   .pool = pool_,
                                   .http = services_.http(),
                                   .defaults = *state_.defaults,
                                   .preparation = model_->updatePreparation(),
                                   .programFolder = terminal::programFolder()});
  }
  return *updates_;
}

Doctor& VantrellApp::doctor() {
  if (!doctor_) {
    doctor_ = std::make_shared<Doctor>(
        Doctor::Dependencies{.main = main_,
                             .changes = model_->changes(),
                             .background = pool_,
                             .http = services_.http(),
                             .runtimes = model_->runtimes(),
                             .providers = services_,
                             .router = model_->router(),
                             .git = model_->git(),
                             .models = model_->catalog()},
        doctorSources({.settings = model_->settings(),
                       .updates = *updates().controller,
                       .fleet = [this]() -> Fleet& { return *fleet().fleet; },
                       .sessions = [this]() -> SessionImport& { return sessionImport(); },
                       .remote = [this]() -> RemoteAccess& { return remote(); }}));
  }
  return *doctor_;
}

std::expected<std::unique_ptr<UserDefaults>, std::string> VantrellApp::defaultsForReading() {
  return UserFolders{}.orOwn().defaultsForReading();
}

}  // namespace vantrell
