#include "shell/terminal/task_choice.h"

#include <fmt/format.h>

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/awaiting.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/user_path.h"

namespace vantrell::shell {

namespace {

/// Nobody has made anything of it: not even a title, as a task has that waits for its first run.
bool isUntouched(const ChatThread& thread) {
  return thread.runs.empty() && thread.entries.empty() && !thread.draftText &&
         (thread.title == newTaskTitle || thread.title == newChatTitle);
}

}  // namespace

std::expected<std::optional<ThreadExecutionKey>, UsageError> taskAtHand(const AppModel& model,
                                                                        const RunPlan& plan) {
  const auto& workspaces = model.tree.workspaces();
  if (plan.arguments.task) return findTask(workspaces, *plan.arguments.task);
  const auto project = std::ranges::find_if(workspaces, [&](const Workspace& each) {
    return files::standardized(each.path) == plan.folder;
  });
  if (project == workspaces.end()) return std::nullopt;
  const auto first = std::ranges::find(project->threads, false, &ChatThread::isArchived);
  if (first == project->threads.end() || !isUntouched(*first)) return std::nullopt;
  return ThreadExecutionKey{project->id, first->id};
}

void countLastProviderAsActive(AppModel& model, const ThreadExecutionKey& task) {
  const ChatThread* thread = model.tree.thread(task);
  if (!thread || !thread->lastProvider) return;
  model.executions.execution(task).activeProvider = thread->lastProvider;
  model.executions.publishExecutionIfSelected(task);
}

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

std::expected<AgentProvider, UsageError> chooseProvider(
    RunLoop& loop, VantrellApp& app, std::optional<AgentProvider> named,
    const std::optional<ThreadExecutionKey>& task) {
  AppModel& model = app.model();
  if (named) model.router->fixForThisProcess(*named);
  if (task) countLastProviderAsActive(model, *task);
  const auto look = [&] {
    await(loop, [&](std::function<void()> done) {
      model.router->findOutForNextTurn({}, task, std::move(done));
    });
    return model.router->expectedProvider({}, task);
  };
  const auto found = app.practices() ? look() : findWithUserPath(loop, *model.runtimes, look);
  if (found) return *found;
  if (named) return usageError(whatToDoFor(app, *named));
  const auto route = model.settings.routingMode();
  if (!allowsAutomaticHandoff(route)) {
    return usageError(
        fmt::format("{} The route leads to it alone; to take another: "
                    "vantrell route automatic",
                    whatToDoFor(app, firstChoice(route))));
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
    if (!text::isValidUtf8(plan.folder)) {
      return usageError(
          "The path of this folder is not valid UTF-8. Rename the folder, then start again.");
    }
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
  }
  return *key;
}

}  // namespace vantrell::shell
