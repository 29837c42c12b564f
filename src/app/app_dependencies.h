// What AppModel stands on. Given at birth by VantrellApp, or by a test.
#pragma once

#include <string>

#include "platform/queues/dispatch.h"

namespace vantrell {

class EngineEvents;
class ProjectServices;
class ProviderServices;
class UserDefaults;
class WorkspaceStore;
struct RuntimePrograms;

/// Everything must outlive the model.
struct AppDependencies {
  MainQueue& main;
  UserDefaults& defaults;
  WorkspaceStore& store;
  ProviderServices& providers;
  ProjectServices& projects;
  EngineEvents& events;
  /// Finds and starts the runtimes' programs.
  const RuntimePrograms& programs;
  /// The program's own data folder.
  std::string supportFolder;
  /// Writes what is saved often, in order; null: the main queue does.
  Executor* writer = nullptr;
  /// Runs git for checkpoints and worktrees, and copies media; null: no checkpoints, and the main
  /// queue copies.
  Executor* background = nullptr;
  /// Asks each runtime about itself at the start: for a front end that shows the answers.
  bool refreshesRuntimes = false;
};

}  // namespace vantrell
