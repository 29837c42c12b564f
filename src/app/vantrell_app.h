// Makes everything a process of this program is made of, in order, and ends it. One process owns
// the user's state at a time.
#pragma once

#include <expected>
#include <memory>
#include <optional>
#include <string>

#include "app/app_model.h"
#include "app/user_state.h"
#include "engine/core/engine_events.h"
#include "engine/providers/installed_runtimes.h"
#include "engine/providers/system_provider_services.h"
#include "platform/queues/dispatch.h"
#include "platform/secrets/secret_queue.h"
#include "records/stores/workspace_store.h"

namespace vantrell {

class Doctor;
struct FleetModule;
class AutomationHosts;
class Automations;
struct AutomationsModule;
struct GatewayModule;
class SessionImport;
class EngineEventRelay;
class LocalProjectServices;
class RemoteAccess;
struct RemoteSnapshot;
struct UpdateModule;

struct VantrellOptions {
  /// Whether the start asks every runtime about itself, for a front end that shows the answers.
  bool refreshesRuntimes = false;
  /// Whether the Git snapshot of the selected conversation is read, at the start and whenever it
  /// may have changed, for a front end that shows it.
  bool readsGitSnapshot = false;
  /// The clipboard and the terminal of the front end; null: those of the session.
  std::shared_ptr<Desktop> desktop;
  /// What the engine asks of the front end; null: nothing can be asked. Must outlive the program.
  EngineEvents* events = nullptr;
  /// Folders; empty ones are the user's own.
  std::string supportFolder;
  std::string configFolder;
};

class VantrellApp {
 public:
  /// The error is one sentence or two for the user, saying what to do.
  static std::expected<std::unique_ptr<VantrellApp>, std::string> start(MainQueue& main,
                                                                        VantrellOptions options);
  ~VantrellApp();
  /// The user's settings for a command that only looks: it needs no lock, and creates nothing. The
  /// error is a sentence for the user.
  static std::expected<std::unique_ptr<UserDefaults>, std::string> defaultsForReading();

  /// How runtimes' programs are found and started here: with the login shell's PATH, the programs
  /// that the user has set, and the desktop of this session unless one is given. For a command that
  /// only looks at them as well. The defaults must outlive them.
  static RuntimePrograms programsOfThisSession(MainQueue& main, BackgroundPool& pool,
                                               std::shared_ptr<Desktop> desktop,
                                               const UserDefaults& defaults);

  AppModel& model() { return *model_; }
  UserDefaults& defaults() { return *state_.defaults; }
  WorkspaceStore& store() { return store_; }
  /// The user's keyring, or the files in its place; chosen at the first use.
  SecretQueue& secrets() { return secrets_; }
  /// Something that the user should know about the start.
  const std::optional<std::string>& notice() const { return notice_; }

  /// The Personal Gateway with its keys and jobs, read at the first use. It listens once its
  /// start() is called.
  GatewayModule& gateway();
  /// The hosts that work can be handed to, read at the first use. They are asked how they are by
  /// each refreshFleet().
  FleetModule& fleet();

  /// Remote control of this computer. It listens once its configureRemoteHost() is called.
  RemoteAccess& remote();
  /// Updates of the program, made at the first use, which removes what the last one has left.
  UpdateModule& updates();
  /// The sessions that the agents' programs know. It scans by itself once its
  /// configureExternalSessionImport() is called.
  SessionImport& sessionImport();
  /// The connection doctor, made at the first use.
  Doctor& doctor();

  /// The recipes, read at the first use. Due ones run by themselves once its
  /// configureAutomationScheduler() is called.
  Automations& automations();
  /// Whether that was called in this process.
  bool runsAutomations() const;

  /// Waits until all that was changed is on the disk; false when some of it could not be written.
  bool flush();

  SystemProviderServices& services() { return services_; }
  const SystemProviderServices& services() const { return services_; }

 private:
  void addFeatures(RemoteSnapshot& snapshot);
  VantrellApp(MainQueue& main, VantrellOptions options, UserState state);

  MainQueue& main_;
  UserState state_;
  WorkspaceStore store_;
  BackgroundPool pool_;
  BackgroundPool writer_{1};  // a save waits for no other work
  SecretQueue secrets_;
  SystemProviderServices services_;
  const std::unique_ptr<LocalProjectServices> projects_;
  RuntimePrograms programs_;
  const std::unique_ptr<EngineEventRelay> events_;
  std::unique_ptr<AppModel> model_;
  std::unique_ptr<GatewayModule> gateway_;
  std::unique_ptr<UpdateModule> updates_;
  std::unique_ptr<SessionImport> sessionImport_;
  std::unique_ptr<RemoteAccess> remote_;
  std::shared_ptr<Doctor> doctor_;
  std::unique_ptr<FleetModule> fleet_;
  std::unique_ptr<AutomationHosts> automationHosts_;
  std::unique_ptr<AutomationsModule> automations_;
  std::optional<std::string> notice_;
};

}  // namespace vantrell
