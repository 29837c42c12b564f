// Everything that updates are made of, in the order of its dependencies. For app/, which owns one,
// and for tests. Main queue.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "engine/core/changes.h"
#include "updates/update_controller.h"
#include "updates/updater.h"

namespace vantrell {

namespace topics {
inline constexpr ChangeTopic updates{"updates"};  // the status of an update of the program
}  // namespace topics

struct UpdateModule {
  /// All references must outlive it.
  struct Dependencies {
    MainQueue& main;
    Changes& changes;
    BackgroundPool& pool;
    HttpClient& http;
    UserDefaults& defaults;
    UpdatePreparation& preparation;
    std::string programFolder;
  };
  explicit UpdateModule(const Dependencies& given);
  UpdateModule(const UpdateModule&) = delete;
  UpdateModule& operator=(const UpdateModule&) = delete;

  /// Where this program is, or how to update it instead.
  const std::expected<Installation, std::string> installation;
  /// Starts the new version in place of this process, once it is installed; unset: it counts from
  /// the next start on.
  std::function<void()> relaunch;
  const std::shared_ptr<UpdateController> controller;
  const std::shared_ptr<Updater> updater;
};

}  // namespace vantrell
