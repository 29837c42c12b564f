#include "engine/providers/provider_setup.h"

#include "platform/files/files.h"
#include "runtimes/tasklet/tasklet_webhook.h"

namespace vantrell {

ProviderSetup::ProviderSetup(EngineCore& core)
    : settings_(core.settings),
      tree_(core.tree),
      selection_(core.selection),
      executions_(core.executions),
      ports_(core.ports) {}

const ProviderConnector& ProviderSetup::connector(AgentProvider provider) const {
  return ports_.connector(provider);
}

ProviderConnectorContext ProviderSetup::contextOf(AgentProvider provider,
                                                  const ChatThread* thread) const {
  ProviderConnectorContext context;
  if (thread) {
    context.selectedModel = thread->modelID(provider);
    context.selectedEffort = thread->effort(provider);
  }
  context.permissionMode = settings_.permissionMode();
  context.localRuntimeStatus = ports_.localRuntimeStatus();
  context.taskletConfigured = ports_.isTaskletConfigured();
  return context;
}

ProviderConnectorContext ProviderSetup::connectorContext(
    AgentProvider provider, const std::optional<std::string>& workspacePath) const {
  const auto key = selection_.key();
  const auto workspaceID = selection_.workspaceID();
  const Workspace* workspace = workspaceID ? tree_.workspace(*workspaceID) : nullptr;
  auto context = contextOf(provider, key ? tree_.thread(*key) : nullptr);
  context.workspacePath = workspacePath.value_or(workspace ? workspace->path : files::homeFolder());
  context.workspaceName = workspace ? workspace->name : files::lastComponent(context.workspacePath);
  return context;
}

std::optional<ProviderConnectorContext> ProviderSetup::connectorContext(
    AgentProvider provider, const ThreadExecutionKey& key) const {
  const Workspace* workspace = tree_.workspace(key.workspaceID);
  const ChatThread* thread = tree_.thread(key);
  const auto path = tree_.executionPath(key);
  if (!workspace || !thread || !path) return std::nullopt;
  auto context = contextOf(provider, thread);
  context.workspacePath = *path;
  context.workspaceName = workspace->name;
  return context;
}

void ProviderSetup::configureTaskletWebhookURL(const std::string& text,
                                               std::function<void(bool)> done) {
  ports_.saveTaskletWebhook(text, [this, done = std::move(done)](bool isSaved) {
    if (!isSaved) {
      executions_.showError(std::string(TaskletWebhook::saveFailure));
    } else {
      executions_.clearError();
      if (executions_.mirror().activeProvider == AgentProvider::tasklet) {
        executions_.resetConnection();
      }
    }
    if (done) done(isSaved);
  });
}

}  // namespace vantrell
