#include <gmock/gmock.h>

#include "support/engine_fixture.h"

namespace vantrell::tests {
namespace {

using ::testing::ElementsAre;

class HookRunner : public EngineFixture {
 public:
  struct Run {
    std::string hook, path;
    std::function<void(std::string)> reply;
  };

  HookRunner() {
    projects.hook = [this](const ProjectHook& hook, const std::string& path, const auto& reply) {
      runs.push_back({hook.relativeExecutablePath, path, reply});
    };
  }

  Uuid add(ProjectHookEvent event, std::string_view path) {
    return model->hooks->addProjectHook(event, path, key.workspaceID).value();
  }
  /// Those of the selected project.
  std::vector<std::string> hooks() {
    std::vector<std::string> all;
    for (const auto& each :
         model->context->profile(key.workspaceID).hooks.value_or(std::vector<ProjectHook>())) {
      all.push_back(std::string(rawText(each.event)) + " " + each.relativeExecutablePath);
    }
    return all;
  }
  void runHooks(ProjectHookEvent event, const std::string& name) {
    model->hooks->runProjectHooks(event, key, [this, name] { done.push_back(name); });
  }
  std::vector<std::string> started() {
    std::vector<std::string> all;
    for (const auto& each : runs) all.push_back(each.hook);
    return all;
  }
  std::string error() { return app->selected().errorMessage().value_or(""); }

  std::vector<Run> runs;
  std::vector<std::string> done;
};

TEST_F(HookRunner, KeepsTheHooksOfAProject) {
  start();
  constexpr auto refusal =
      "Hooks must be executable files inside the project, using a relative path.";
  for (const std::string path : {"", " \n", "/bin/true", "  /bin/true"}) {
    const auto added =
        model->hooks->addProjectHook(ProjectHookEvent::afterTask, path, key.workspaceID);
    ASSERT_FALSE(added) << path;
    EXPECT_EQ(added.error().sentence, refusal) << path;
  }
  add(ProjectHookEvent::afterTask, " .vantrell/hooks/after-task\n");
  const Uuid second = add(ProjectHookEvent::taskFailed, "../outside");
  EXPECT_THAT(hooks(),
              ElementsAre("afterTask .vantrell/hooks/after-task", "taskFailed ../outside"));

  stop();
  start();
  EXPECT_EQ(hooks().size(), 2U) << "after a restart";
  model->hooks->removeProjectHook(Uuid::random(), key.workspaceID);
  model->hooks->removeProjectHook(second, key.workspaceID);
  EXPECT_THAT(hooks(), ElementsAre("afterTask .vantrell/hooks/after-task"));
  model->navigation.selectWorkspace(model->navigation.generalWorkspace()->id);
  model->hooks->addProjectHook(ProjectHookEvent::beforeTask, "b", key.workspaceID);
  EXPECT_EQ(hooks().size(), 2U) << "of another project than the selected one";
}

TEST_F(HookRunner, RunsThoseOfTheEventOneAfterTheOther) {
  start();
  add(ProjectHookEvent::afterTask, "a");
  add(ProjectHookEvent::taskFailed, "other");
  add(ProjectHookEvent::afterTask, "off");
  add(ProjectHookEvent::afterTask, "b");
  model->context->update(key.workspaceID,
                         [](auto& profile) { (*profile.hooks)[2].enabled = false; });
  runHooks(ProjectHookEvent::beforeTask, "none");
  EXPECT_THAT(done, ElementsAre("none")) << "at once";
  runHooks(ProjectHookEvent::afterTask, "first");
  runHooks(ProjectHookEvent::afterTask, "second");
  EXPECT_THAT(started(), ElementsAre("a"));
  EXPECT_EQ(runs[0].path, folder / "project");

  runs[0].reply("Hook exited with status 1.\nno");
  const ChatEntry entry = thread().entries.back();
  EXPECT_EQ(entry.kind, ChatEntryKind::tool);
  EXPECT_EQ(entry.title, "Hook · a");
  EXPECT_EQ(entry.text, "Hook exited with status 1.\nno");
  EXPECT_EQ(entry.status, "completed");
  EXPECT_EQ(entry.createdAt, main.now());
  EXPECT_EQ(saved()[1].threads[0].entries.back().title, "Hook · a");
  EXPECT_THAT(started(), ElementsAre("a", "b"));
  EXPECT_THAT(done, ElementsAre("none"));
  runs[1].reply("");
  EXPECT_THAT(done, ElementsAre("none", "first"));
  EXPECT_THAT(started(), ElementsAre("a", "b", "a")) << "the second call had to wait";
  runs[2].reply("");
  runs[3].reply("");
  EXPECT_THAT(done, ElementsAre("none", "first", "second"));
  EXPECT_EQ(thread().entries.size(), 4U);
}

TEST_F(HookRunner, RunsThemWhereTheTaskWorksAndNoLongerThanThereIsATask) {
  start();
  add(ProjectHookEvent::beforeTask, "a");
  add(ProjectHookEvent::beforeTask, "b");
  runHooks(ProjectHookEvent::beforeTask, "shared");
  model->tree.updateThread(key, [&](ChatThread& each) {
    each.workspaceMode = TaskWorkspaceMode::isolated;
    each.isolatedWorkspacePath = folder.folder("worktree");
  });
  runHooks(ProjectHookEvent::beforeTask, "isolated");
  ASSERT_EQ(runs.size(), 2U) << "another folder needs not wait";
  EXPECT_EQ(runs[1].path, folder / "worktree");

  model->operations->deleteThread(key.threadID, key.workspaceID);
  runs[0].reply("late");
  runs[1].reply("late");
  EXPECT_EQ(runs.size(), 2U);
  EXPECT_THAT(done, ElementsAre("shared", "isolated"));
  runHooks(ProjectHookEvent::beforeTask, "gone");
  EXPECT_THAT(done, ElementsAre("shared", "isolated", "gone"));
}

TEST_F(HookRunner, StandsAroundATurnAndCannotStopIt) {
  start();
  add(ProjectHookEvent::beforeTask, "before");
  add(ProjectHookEvent::afterTask, "after");
  send("Go");
  EXPECT_TRUE(clients.empty()) << "the prompt waits for the hook";
  runs.at(0).reply("Hook timed out after 30 seconds.\n");
  ASSERT_EQ(clients.size(), 1U);
  client().opens("session");
  client().finishes();
  main.runReady();
  EXPECT_THAT(started(), ElementsAre("before", "after"));
  bool isOver = false;
  model->hooks->whenDone(key, [&] { isOver = true; });
  EXPECT_FALSE(isOver);
  runs[1].reply("Hook completed.");
  EXPECT_TRUE(isOver);
}

}  // namespace
}  // namespace vantrell::tests
