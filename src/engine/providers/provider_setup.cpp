#include "engine/providers/provider_setup.h"

#include "engine/core/friendly_error.h"
#include "platform/files/files.h"
#include "runtimes/tasklet/tasklet_webhook.h"

namespace vantrell {

void ProviderSetup::setChoices(ProviderConnectorContext& context, AgentProvider provider,
                               std::optional<ThreadExecutionKey> key) const {
  if (!key) key = core_.selection.key();
  const ChatThread* thread = key ? core_.tree.thread(*key) : nullptr;
  context.selectedModel = thread ? thread->modelID(provider) : std::nullopt;
  context.selectedEffort = thread ? thread->effort(provider) : std::nullopt;
}

ProviderConnectorContext ProviderSetup::contextOf(AgentProvider provider,
                                                  const ChatThread* thread) const {
  ProviderConnectorContext context;
  if (thread) {
    context.selectedModel = thread->modelID(provider);
    context.selectedEffort = thread->effort(provider);
  }
  context.permissionMode = core_.settings.permissionMode();
  context.localRuntimeStatus = localRuntimeStatus();
  context.taskletConfigured = taskletConfigured();
  return context;
}

ProviderConnectorContext ProviderSetup::connectorContext(
    AgentProvider provider, const std::optional<std::string>& workspacePath) const {
  const auto key = core_.selection.key();
  const auto workspaceID = core_.selection.workspaceID();
  const Workspace* workspace = workspaceID ? core_.tree.workspace(*workspaceID) : nullptr;
  auto context = contextOf(provider, key ? core_.tree.thread(*key) : nullptr);
  context.workspacePath = workspacePath.value_or(workspace ? workspace->path : files::homeFolder());
  context.workspaceName = workspace ? workspace->name : files::lastComponent(context.workspacePath);
  return context;
}

std::optional<ProviderConnectorContext> ProviderSetup::connectorContext(
    AgentProvider provider, const ThreadExecutionKey& key) const {
  const Workspace* workspace = core_.tree.workspace(key.workspaceID);
  const ChatThread* thread = core_.tree.thread(key);
  const auto path = core_.tree.executionPath(key);
  if (!workspace || !thread || !path) return std::nullopt;
  auto context = contextOf(provider, thread);
  context.workspacePath = *path;
  context.workspaceName = workspace->name;
  return context;
}

std::string ProviderSetup::advice(const std::string& description, AgentProvider provider) const {
  const auto& own = connector(provider).advice;
  return own ? own(description) : friendlyError(description, provider);
}

void ProviderSetup::configureTaskletWebhookURL(const std::string& text,
                                               std::function<void(Result<>)> done) {
  core_.services.saveTaskletWebhook(text, [this, done = std::move(done)](bool isSaved) {
    if (!isSaved) return done(refuse(std::string(TaskletWebhook::saveFailure)));
    for (const auto& key : core_.executions.keys()) {
      const auto* execution = core_.executions.find(key);
      if (execution->activeProvider == AgentProvider::tasklet) core_.runs.resetConnection(key);
    }
    done({});
  });
}

}  // namespace vantrell
