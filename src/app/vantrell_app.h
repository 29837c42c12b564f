// The composition root: makes everything a process of this program is made of, in order, and ends
// it. One process owns the user's state at a time.
#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/provider_services.h"
#include "app/user_state.h"
#include "engine/app_model.h"
#include "platform/process/program_runner.h"
#include "platform/queues/dispatch.h"
#include "platform/secrets/secret_queue.h"
#include "records/stores/workspace_store.h"
#include "runtimes/catalog/provider_connectors.h"

namespace vantrell {

struct VantrellOptions {
  /// Path of a provider's program for this process, from the front door; where it is absent, the
  /// path that the user has stored counts.
  std::function<std::optional<std::string>(AgentProvider)> customExecutable;
  /// Whether the start asks every runtime about itself, for a front door that shows the answers.
  bool refreshesRuntimes = false;
  /// Whether the Git picture of what is looked at is read, at the start and whenever it may have
  /// changed, for a front door that shows it.
  bool keepsGitPicture = false;
  /// The clipboard and the terminal of the front door; null: those of the session.
  std::shared_ptr<Desktop> desktop;
  /// Path of the practice agent, which then stands in for local models in this process.
  std::optional<std::string> practiceAgent;
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

  AppModel& model() { return *model_; }
  UserDefaults& defaults() { return *state_.defaults; }
  ProviderConnectorRegistry& connectors() { return connectors_; }
  /// The user's keyring, or the files in its place; chosen at the first use.
  SecretQueue& secrets() { return secrets_; }
  /// Something that the user should know about the start, or absent.
  const std::optional<std::string>& notice() const { return notice_; }

  ProviderServices& services() { return services_; }
  const ProviderServices& services() const { return services_; }
  /// The practice agent stands in for local models.
  bool practices() const { return practices_; }

 private:
  VantrellApp(MainQueue& main, VantrellOptions options, UserState state);

  MainQueue& main_;
  UserState state_;
  WorkspaceStore store_;
  BackgroundPool pool_;
  BackgroundPool writer_{1};  // a save waits for no other work
  SecretQueue secrets_;
  const std::shared_ptr<ProgramRunner> runner_;
  ProviderServices services_;
  ProviderConnectorRegistry connectors_;
  std::unique_ptr<AppModel> model_;
  std::optional<std::string> notice_;
  const bool practices_;
};

}  // namespace vantrell
