#include "app/app_parts.h"

namespace vantrell {

AppParts::AppParts(AppDependencies given)
    : main(given.main),
      changes(main),
      orchestration(
          given.supportFolder, [&queue = main] { return queue.now(); },
          [this](const std::string& text) { changes.notice(text); }),
      settings(given.defaults, changes),
      tree(main, given.store, changes, given.writer),
      selection(given.defaults, changes),
      executions(main, changes),
      runs(main, tree, executions, given.events),

      context(std::make_shared<ProjectContextService>(ProjectContextService::Dependencies{
          main, tree, selection, changes, orchestration, given.projects})),
      git(std::make_shared<GitSnapshotService>(tree, selection, changes, given.projects)),
      hooks(std::make_shared<HookRunner>(main, tree, *context, given.projects)),
      reviews(main, changes, orchestration),
      safety(std::make_shared<TaskSafety>(TaskSafety::Dependencies{
          main, tree, executions, runs, *git, changes, given.background, given.supportFolder})),

      runtimes(std::make_shared<InstalledRuntimes>(changes, given.programs)),
      usage(main, changes, orchestration, given.writer),
      setup({settings, tree, selection, executions, runs, given.providers}),
      reportedModels(orchestration, given.writer),
      catalog(
          std::make_shared<ModelCatalog>(main, changes, setup, usage, *runtimes, reportedModels)),
      controls({main, settings, tree, executions, runs, *catalog}),
      router(std::make_shared<Router>(
          Router::Dependencies{settings, tree, executions, runs, setup, usage})),
      imagine(std::make_shared<ImagineController>(ImagineController::Dependencies{
          main, settings, executions, changes, given.events, given.providers, *runtimes,
          given.supportFolder,
          given.background ? *given.background : static_cast<Executor&>(main)})),

      intake(main, tree, executions, runs),
      approvals(settings, executions, runs, *imagine),
      queue(main, tree),
      status(main, tree, executions, changes),
      reports({executions, runs, intake, approvals, *catalog, usage}),
      launcher(std::make_shared<AgentLauncher>(
          AgentLauncher::Dependencies{tree, executions, runs, setup, intake, reports})),
      usageReset(std::make_shared<UsageReset>(executions, usage, controls, *launcher)),
      outcome(std::make_shared<TurnOutcome>(main, runs, executions, setup, *git, *hooks)),
      prompts(std::make_shared<TurnPrompts>(
          TurnPrompts::Dependencies{settings, tree, executions, *context, given.projects})),
      turns(std::make_shared<TurnRunner>(
          TurnRunner::Dependencies{executions, runs, *router, *prompts, *launcher, *outcome})),
      starter(std::make_shared<TurnStarter>(
          TurnStarter::Dependencies{main, tree, runs, *hooks, *safety, *turns})),
      composer(std::make_shared<Composer>(
          Composer::Dependencies{tree, executions, runs, status, queue, *starter})),
      monitor(std::make_shared<ExecutionMonitor>(main, executions, runs)),

      navigation({main, tree, selection, *context, *git}),
      operations(std::make_shared<WorkspaceOperations>(WorkspaceOperations::Dependencies{
          main, tree, executions, runs, navigation, given.events, changes})),
      branches(std::make_shared<TaskBranches>(
          TaskBranches::Dependencies{main, tree, executions, *router, *composer, *safety})),
      settingsOperations({settings, approvals, *router, setup, *catalog, *runtimes}),
      updatePreparation(tree, executions, runs, *imagine, *branches) {
  composer->setGate(branches.get());
  selectionWatch = changes.observe([this](const ChangeBatch& batch) {
    const auto shown = selection.key();
    if (batch.has(topics::selection) && shown) tree.loadTranscript(*shown);
  });
  given.providers.onLocalRuntimeChanged = [this] { catalog->localRuntimeChanged(); };
}

}  // namespace vantrell
