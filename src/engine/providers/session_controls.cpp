#include "engine/providers/session_controls.h"

#include "runtimes/codex/codex_app_server_client.h"

namespace vantrell {

SessionControls::SessionControls(EngineCore& core, Approvals& approvals, ModelCatalog& catalog)
    : main_(core.main),
      settings_(core.settings),
      tree_(core.tree),
      selection_(core.selection),
      executions_(core.executions),
      approvals_(approvals),
      catalog_(catalog) {}

const ChatThread* SessionControls::selectedThread() const {
  const auto key = selection_.key();
  return key ? tree_.thread(*key) : nullptr;
}

AgentProvider SessionControls::sessionConfigurationProvider() const {
  const auto mode = settings_.routingMode();
  if (!allowsAutomaticHandoff(mode)) return firstChoice(mode);
  if (const auto& active = executions_.mirror().activeProvider) return *active;
  const ChatThread* thread = selectedThread();
  return thread && thread->lastProvider ? *thread->lastProvider : firstChoice(mode);
}

// ---- options ------------------------------------------------------------------------------------

SessionControls::ModelOptions SessionControls::sessionModelOptions() const {
  return catalog_.options(sessionConfigurationProvider());
}

SessionControls::EffortOptions SessionControls::sessionEffortOptions() const {
  const auto provider = sessionConfigurationProvider();
  const ChatThread* thread = selectedThread();
  return effortsOf(catalog_.options(provider), thread ? thread->modelID(provider) : std::nullopt);
}

std::string SessionControls::sessionModelLabel() const {
  const auto provider = sessionConfigurationProvider();
  const ChatThread* thread = selectedThread();
  return labelOf(catalog_.options(provider), thread ? thread->modelID(provider) : std::nullopt);
}

std::string SessionControls::sessionEffortLabel() const {
  const ChatThread* thread = selectedThread();
  return labelOf(sessionEffortOptions(),
                 thread ? thread->effort(sessionConfigurationProvider()) : std::nullopt);
}

// ---- choices ------------------------------------------------------------------------------------

void SessionControls::setSessionModel(const std::string& id) {
  if (const auto key = selection_.key()) chooseModel(sessionConfigurationProvider(), *key, id);
}

void SessionControls::setSessionEffort(const std::string& id) {
  if (const auto key = selection_.key()) chooseEffort(sessionConfigurationProvider(), *key, id);
}

bool SessionControls::chooseModel(AgentProvider provider, const ThreadExecutionKey& key,
                                  const std::string& id) {
  const auto models = catalog_.options(provider);
  if (!mayChange(key) || !offers(models, id)) return false;
  const auto efforts = effortsOf(models, id);
  choose(key, [&](ChatThread& thread) {
    thread.setModelID(id, provider, main_.now());
    const auto effort = thread.effort(provider);
    if (effort && !offers(efforts, *effort)) {
      thread.setEffort(std::nullopt, provider, main_.now());
    }
  });
  return true;
}

bool SessionControls::chooseEffort(AgentProvider provider, const ThreadExecutionKey& key,
                                   const std::string& id) {
  const ChatThread* thread = tree_.thread(key);
  if (!thread || !mayChange(key)) return false;
  const auto efforts = effortsOf(catalog_.options(provider), thread->modelID(provider));
  if (!offers(efforts, id)) return false;
  choose(key, [&](ChatThread& changed) { changed.setEffort(id, provider, main_.now()); });
  return true;
}

bool SessionControls::mayChange(const ThreadExecutionKey& key) {
  if (!tree_.thread(key)) return false;
  if (selection_.key() == key) return approvals_.canChangePermissionMode();
  const ThreadExecutionRuntime* execution = executions_.find(key);
  return !execution || (!execution->connectionState.isBusy() && !execution->permissionRequest);
}

void SessionControls::choose(const ThreadExecutionKey& key,
                             const std::function<void(ChatThread&)>& change) {
  tree_.updateThread(key, change);
  if (selection_.key() == key) {
    executions_.resetConnection();
  } else {
    executions_.remove(key);
  }
}

// ---- usage --------------------------------------------------------------------------------------

void SessionControls::refreshSessionUsage() {
  if (sessionConfigurationProvider() == AgentProvider::codex) {
    const auto codex = std::dynamic_pointer_cast<CodexAppServerClient>(executions_.mirror().client);
    if (codex) codex->refreshUsage();
  }
  catalog_.refreshSessionControls();
}

}  // namespace vantrell
