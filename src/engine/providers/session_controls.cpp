#include "engine/providers/session_controls.h"

#include <fmt/format.h>

#include "runtimes/codex/codex_app_server_client.h"

namespace vantrell {

const ChatThread* SessionControls::threadOf(const Key& key) const {
  return key ? core_.tree.thread(*key) : nullptr;
}

AgentProvider SessionControls::sessionConfigurationProvider(const Key& key) const {
  const auto mode = core_.settings.routingMode();
  if (!allowsAutomaticHandoff(mode)) return firstChoice(mode);
  const auto* execution = key ? core_.executions.find(*key) : nullptr;
  if (execution && execution->activeProvider) return *execution->activeProvider;
  const ChatThread* thread = threadOf(key);
  return thread && thread->lastProvider ? *thread->lastProvider : firstChoice(mode);
}

// ---- options ------------------------------------------------------------------------------------

SessionControls::ModelOptions SessionControls::sessionModelOptions(const Key& key) const {
  return core_.catalog.options(sessionConfigurationProvider(key));
}

SessionControls::EffortOptions SessionControls::sessionEffortOptions(const Key& key) const {
  const auto provider = sessionConfigurationProvider(key);
  const ChatThread* thread = threadOf(key);
  return effortsOf(core_.catalog.options(provider),
                   thread ? thread->modelID(provider) : std::nullopt);
}

std::string SessionControls::sessionModelLabel(const Key& key) const {
  const auto provider = sessionConfigurationProvider(key);
  const ChatThread* thread = threadOf(key);
  return labelOf(core_.catalog.options(provider),
                 thread ? thread->modelID(provider) : std::nullopt);
}

std::string SessionControls::sessionEffortLabel(const Key& key) const {
  const ChatThread* thread = threadOf(key);
  return labelOf(sessionEffortOptions(key),
                 thread ? thread->effort(sessionConfigurationProvider(key)) : std::nullopt);
}

// ---- choices ------------------------------------------------------------------------------------

Result<> SessionControls::chooseModel(AgentProvider provider, const ThreadExecutionKey& key,
                                      const std::string& id) {
  if (auto may = mayChange(key); !may) return may;
  const auto models = core_.catalog.options(provider);
  if (!offers(models, id)) {
    return refuse(fmt::format("{} does not offer the model {}.", shortLabel(provider), id));
  }
  const auto efforts = effortsOf(models, id);
  choose(key, [&](ChatThread& thread) {
    thread.setModelID(id, provider, core_.main.now());
    const auto effort = thread.effort(provider);
    if (effort && !offers(efforts, *effort)) {
      thread.setEffort(std::nullopt, provider, core_.main.now());
    }
  });
  return {};
}

Result<> SessionControls::chooseEffort(AgentProvider provider, const ThreadExecutionKey& key,
                                       const std::string& id) {
  if (auto may = mayChange(key); !may) return may;
  const ChatThread* thread = core_.tree.thread(key);
  if (!offers(effortsOf(core_.catalog.options(provider), thread->modelID(provider)), id)) {
    return refuse(
        fmt::format("{} does not offer the effort {} with this model.", shortLabel(provider), id));
  }
  choose(key, [&](ChatThread& changed) { changed.setEffort(id, provider, core_.main.now()); });
  return {};
}

Result<> SessionControls::chooseUnchecked(AgentProvider provider, const ThreadExecutionKey& key,
                                          std::optional<std::string> modelID,
                                          std::optional<std::string> effort) {
  if (auto may = mayChange(key); !may) return may;
  choose(key, [&](ChatThread& thread) {
    thread.setModelID(std::move(modelID), provider, core_.main.now());
    thread.setEffort(std::move(effort), provider, core_.main.now());
  });
  return {};
}

Result<> SessionControls::mayChange(const ThreadExecutionKey& key) const {
  if (!core_.tree.thread(key)) return refuseMissingConversation();
  if (core_.executions.canChangeSession(key)) return {};
  return refuse("Wait until the turn has ended, or stop it, before you change this.");
}

void SessionControls::choose(const ThreadExecutionKey& key,
                             const std::function<void(ChatThread&)>& change) {
  core_.tree.updateThread(key, change);
  core_.runs.resetConnection(key);
}

// ---- usage --------------------------------------------------------------------------------------

void SessionControls::refreshSessionUsage(const Key& key) {
  const auto* execution = key ? core_.executions.find(*key) : nullptr;
  if (execution && sessionConfigurationProvider(key) == AgentProvider::codex) {
    const auto codex = std::dynamic_pointer_cast<CodexAppServerClient>(execution->client());
    if (codex) codex->refreshUsage();
  }
  core_.catalog.refreshSessionControls();
}

}  // namespace vantrell
