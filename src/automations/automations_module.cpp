#include "automations/automations_module.h"

#include "project/git_workspace_service.h"

namespace vantrell {

AutomationsModule::AutomationsModule(const Dependencies& given)
    : store(given.main, given.changes, given.files, given.writer),
      automations(std::make_shared<Automations>(
          Automations::Dependencies{given.main, given.changes, given.tree, given.operations,
                                    given.composer, given.executions, store,
                                    [&main = given.main, &background = given.background](
                                        const std::string& folder, std::stop_token stop,
                                        std::function<void(GitWorkspaceSnapshot)> reply) {
                                      GitWorkspaceService::snapshot(folder, std::move(stop), main,
                                                                    background, std::move(reply));
                                    }},
          AutomationStore::load(given.files))) {}

AutomationsModule::~AutomationsModule() = default;

}  // namespace vantrell
