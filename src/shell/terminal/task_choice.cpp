#include "shell/terminal/task_choice.h"

#include <fmt/format.h>

#include "runtimes/provider_registry.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/user_path.h"

namespace vantrell::shell {

namespace {

/// Nobody has made anything of it: not even a title, as a task has that waits for its first run.
bool isUntouched(const ChatThread& thread) {
  return thread.runs.empty() && thread.entries.empty() && !thread.draftText &&
         (thread.title == newTaskTitle || thread.title == newChatTitle);
}

/// Why a provider cannot be used now, and what helps.
std::string whatToDoFor(const VantrellApp& app, AgentProvider provider) {
  const auto label = ProviderRegistry::descriptor(provider).label;
  const auto hint = ProviderRegistry::setupHint(provider);
  if (provider == AgentProvider::tasklet) {
    const auto& problem = app.services().webhook()->problem();
    if (!problem.empty()) return fmt::format("{} cannot be used: {}", label, problem);
    return fmt::format("{} is not set up. {} Type: vantrell settings set tasklet-webhook", label,
                       hint);
  }
  if (provider == AgentProvider::local) {
    const auto status = app.services().localRuntime().status();
    return fmt::format("{} cannot be used: {} {} If it was the practice agent: --practice.", label,
                       status.reason() ? *status.reason() : "the harness is missing.", hint);
  }
  return fmt::format(
      "{} is not installed. {} Or say where its program is with --executable, or try vantrell run "
      "--practice \"SAY:hello\".",
      label, hint);
}

}  // namespace

std::expected<AgentProvider, UsageError> chooseProvider(RunLoop& loop, VantrellApp& app,
                                                        const RunPlan& plan,
                                                        std::optional<AgentProvider> last) {
  if (plan.practiceAgent) return AgentProvider::local;
  const auto& named = plan.arguments.provider;
  const auto wanted = named ? named : last;
  const auto found =
      findWithUserPath(loop, *app.model().runtimes, [&]() -> std::optional<AgentProvider> {
        if (wanted) return app.isAvailable(*wanted) ? wanted : std::nullopt;
        for (const auto provider : agentsToTry) {
          if (app.isAvailable(provider)) return provider;
        }
        return std::nullopt;
      });
  if (found) return *found;
  if (wanted) {
    return usageError(whatToDoFor(app, *wanted));
  }
  return usageError(
      "No agent is installed. \"vantrell providers\" tells how to get one; or try vantrell run "
      "--practice \"SAY:hello\".");
}

std::expected<ThreadExecutionKey, UsageError> openTask(AppModel& model, const RunPlan& plan,
                                                       AgentProvider provider) {
  if (plan.arguments.task) {
    const auto found = findTask(model.tree.workspaces(), *plan.arguments.task);
    if (!found) return found;
    model.operations.selectThread(found->threadID, found->workspaceID);
  } else {
    model.operations.addWorkspace(plan.folder);
    const auto key = model.selection.key();
    const ChatThread* thread = key ? model.tree.thread(*key) : nullptr;
    if (!thread || !isUntouched(*thread)) {
      if (const auto workspace = model.selection.workspaceID()) {
        model.operations.newThread(*workspace);
      }
    }
  }
  const auto key = model.selection.key();
  if (!key) return usageError("The task could not be opened. Try again.");
  if (plan.arguments.model || plan.arguments.effort) {
    model.tree.updateThread(*key, [&](ChatThread& thread) {
      const Date now = model.main.now();
      if (plan.arguments.model) thread.setModelID(plan.arguments.model, provider, now);
      if (plan.arguments.effort) thread.setEffort(plan.arguments.effort, provider, now);
    });
    model.tree.save();
  }
  return *key;
}

}  // namespace vantrell::shell
