#include "engine/projects/local_project_services.h"

#include <utility>

#include "project/context_discovery.h"
#include "project/git_workspace_service.h"
#include "project/project_hook_service.h"
#include "project/repository_state.h"

namespace vantrell {

namespace {

/// Finds the answer on the pool and gives it on the main queue.
template <typename Find, typename Reply>
void answerFrom(BackgroundPool& pool, MainQueue& main, Find find, Reply reply) {
  pool.post([&main, find = std::move(find), reply = std::move(reply)]() mutable {
    main.post([answer = find(), reply = std::move(reply)]() mutable { reply(std::move(answer)); });
  });
}

}  // namespace

LocalProjectServices::LocalProjectServices(MainQueue& main, BackgroundPool& pool, bool readsGit)
    : main_(main),
      pool_(pool),
      readsGit_(readsGit),
      hooks_(std::make_shared<ProjectHookService>(main, pool)) {}

LocalProjectServices::~LocalProjectServices() {
  ending_.request_stop();
}

void LocalProjectServices::repositoryState(const std::string& folder,
                                           std::function<void(std::string)> reply) {
  answerFrom(
      pool_, main_,
      [folder, stop = ending_.get_token()] { return vantrell::repositoryState(folder, stop); },
      std::move(reply));
}

void LocalProjectServices::discoverContextSources(
    const std::string& folder, std::function<void(std::vector<ProjectContextSource>)> reply) {
  answerFrom(
      pool_, main_, [folder] { return vantrell::discoverContextSources(folder); },
      std::move(reply));
}

void LocalProjectServices::gitSnapshot(const std::string& folder, std::stop_token stop,
                                       std::function<void(GitWorkspaceSnapshot)> reply) {
  if (!readsGit_) return reply(GitWorkspaceSnapshot::unavailable());
  GitWorkspaceService::snapshot(folder, std::move(stop), main_, pool_, std::move(reply));
}

void LocalProjectServices::runProjectHook(const ProjectHook& hook, const std::string& folder,
                                          std::function<void(std::string text)> reply) {
  hooks_->run(hook, folder, [reply = std::move(reply)](ProjectHookOutcome outcome) {
    reply(std::move(outcome.text));
  });
}

}  // namespace vantrell
