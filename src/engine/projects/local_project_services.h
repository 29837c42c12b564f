// Reads project folders and runs their hooks on this machine, in the background.
#pragma once

#include <memory>

#include "engine/projects/project_services.h"
#include "platform/queues/dispatch.h"

namespace vantrell {

class ProjectHookService;

class LocalProjectServices : public ProjectServices {
 public:
  /// Without `readsGit` every snapshot is "unavailable" at once: for front ends that show none.
  LocalProjectServices(MainQueue& main, BackgroundPool& pool, bool readsGit);
  /// Stops what was asked of git.
  ~LocalProjectServices() override;

  void repositoryState(const std::string& folder, std::function<void(std::string)> reply) override;
  void discoverContextSources(
      const std::string& folder,
      std::function<void(std::vector<ProjectContextSource>)> reply) override;
  void gitSnapshot(const std::string& folder, std::stop_token stop,
                   std::function<void(GitWorkspaceSnapshot)> reply) override;
  void runProjectHook(const ProjectHook& hook, const std::string& folder,
                      std::function<void(std::string text)> reply) override;

 private:
  MainQueue& main_;
  BackgroundPool& pool_;
  const bool readsGit_;
  const std::shared_ptr<ProjectHookService> hooks_;
  std::stop_source ending_;
};

}  // namespace vantrell
