#include "fleet/this_machine.h"

#include <gmock/gmock.h>

#include "support/engine_fixture.h"

namespace vantrell::tests {
namespace {

using enum AgentProvider;

class ThisMachineTest : public EngineFixture {
 protected:
  ThisMachine here() const {
    return ThisMachine({.main = model->main,
                        .tree = app->tree(),
                        .settings = app->settings(),
                        .selection = app->selection(),
                        .executions = app->executions(),
                        .router = app->router()});
  }
};

TEST_F(ThisMachineTest, IsAHostThatSaysWhatItCanDo) {
  others = {codex};
  start();
  auto host = here().asFleetHost();
  EXPECT_EQ(host.status, FleetHostStatus::online);
  EXPECT_THAT(host.capabilities, testing::ElementsAre("ChatGPT / Codex", "Kimi Code"));
  work("go on");
  host = here().asFleetHost();
  EXPECT_EQ(host.status, FleetHostStatus::busy);
  EXPECT_TRUE(host.isThisMachine());
}

TEST_F(ThisMachineTest, TaskTakesTheChoicesOfTheSelectedConversation) {
  start();
  const auto project = app->tree().workspace(key.workspaceID)->path;
  const auto task = [&] { return here().task("mend"); };
  EXPECT_EQ(task().projectPath, project);
  EXPECT_EQ(here().task("mend", "/other").projectPath, "/other");
  EXPECT_EQ(task().provider, firstChoice(ProviderRoutingMode::automatic));
  EXPECT_EQ(task().permissionMode, GrokPermissionMode::ask);
  work("go on");  // with Kimi
  EXPECT_EQ(task().provider, kimi);
  ASSERT_TRUE(model->settings.recordRoutingMode(ProviderRoutingMode::claude));
  ASSERT_TRUE(model->settings.recordPermissionMode(GrokPermissionMode::auto_));
  EXPECT_EQ(task().provider, claude);
  EXPECT_EQ(task().permissionMode, GrokPermissionMode::auto_);
}

}  // namespace
}  // namespace vantrell::tests
