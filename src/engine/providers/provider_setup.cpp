#include "engine/providers/provider_setup.h"

#include "engine/core/friendly_error.h"
#include "platform/files/files.h"
#include "runtimes/tasklet/tasklet_webhook.h"

namespace vantrell {

void ProviderSetup::setChoices(ProviderConnectorContext& context, AgentProvider provider,
                               std::optional<ThreadExecutionKey> key,
                               const RunChoices& choices) const {
  if (!key) key = core_.selection.key();
  const ChatThread* thread = key ? core_.tree.thread(*key) : nullptr;
  context.selectedModel = thread ? thread->modelID(provider) : std::nullopt;
  context.selectedEffort = thread ? thread->effort(provider) : std::nullopt;
  applyChoices(context, provider, choices);
}

ProviderConnectorContext ProviderSetup::contextOf(AgentProvider provider, const ChatThread* thread,
                                                  const RunChoices& choices) const {
  ProviderConnectorContext context;
  if (thread) {
    context.selectedModel = thread->modelID(provider);
    context.selectedEffort = thread->effort(provider);
  }
  context.localRuntimeStatus = localRuntimeStatus();
  context.taskletConfigured = taskletConfigured();
  applyChoices(context, provider, choices);
  return context;
}

void ProviderSetup::applyChoices(ProviderConnectorContext& context, AgentProvider provider,
                                 const RunChoices& choices) const {
  context.permissionMode = core_.settings.permissionModeFor(choices);
  context.executable = choices.provider == provider ? choices.executable : std::nullopt;
  context.practiceAgent = provider == AgentProvider::local ? choices.practiceAgent : std::nullopt;
}

ProviderConnectorContext ProviderSetup::connectorContext(
    AgentProvider provider, const std::optional<std::string>& workspacePath) const {
  const auto key = core_.selection.key();
  const auto workspaceID = core_.selection.workspaceID();
  const Workspace* workspace = workspaceID ? core_.tree.workspace(*workspaceID) : nullptr;
  auto context = contextOf(provider, key ? core_.tree.thread(*key) : nullptr,
                           core_.executions.choicesFor(key));
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
  auto context = contextOf(provider, thread, core_.executions.choicesFor(key));
  context.workspacePath = *path;
  context.workspaceName = workspace->name;
  return context;
}

RunChoices ProviderSetup::choicesOf(const ProviderConnectorContext& context) {
  return {.permissionMode = context.permissionMode,
          .executable = context.executable,
          .practiceAgent = context.practiceAgent};
}

RunChoices ProviderSetup::choicesFor(AgentProvider provider, const ThreadExecutionKey& key) const {
  ProviderConnectorContext context;
  applyChoices(context, provider, core_.executions.choicesFor(key));
  return choicesOf(context);
}

std::string ProviderSetup::advice(const std::string& description, AgentProvider provider,
                                  const ThreadExecutionKey& key) const {
  // What helps with local models is no help with the practice agent.
  const bool isPractice =
      provider == AgentProvider::local && core_.executions.choicesFor(key).practiceAgent;
  return isPractice ? description : friendlyError(description, provider);
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
