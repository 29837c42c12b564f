// The composition root: makes everything a process of this program is made of, in order, and ends
// it. One process owns the user's state at a time.
#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "engine/app_model.h"
#include "platform/dispatch.h"
#include "platform/files.h"
#include "platform/user_defaults.h"
#include "records/workspace_store.h"
#include "runtimes/provider_connectors.h"

namespace vantrell {

struct VantrellOptions {
  /// Path of a provider's program for this process, from the front door.
  std::function<std::optional<std::string>(AgentProvider)> customExecutable;
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

  AppModel& model() { return *model_; }
  ProviderConnectorRegistry& connectors() { return connectors_; }
  /// Something that the user should know about the start, or absent.
  const std::optional<std::string>& notice() const { return store_.notice(); }

  /// The provider that takes every turn: the one that the front door names.
  std::optional<AgentProvider> frontDoorProvider;

  /// Whether a client for this provider could be made now.
  bool isAvailable(AgentProvider provider) const;

 private:
  VantrellApp(MainQueue& main, VantrellOptions options, files::LockFile lock,
              std::unique_ptr<UserDefaults> defaults, std::string supportFolder);

  MainQueue& main_;
  files::LockFile lock_;
  std::unique_ptr<UserDefaults> defaults_;
  WorkspaceStore store_;
  BackgroundPool pool_;
  BackgroundPool writer_{1};  // a save waits for no other work
  ProviderConnectorRegistry connectors_;
  std::unique_ptr<AppModel> model_;
};

}  // namespace vantrell
