#include <gmock/gmock.h>

#include "support/engine_fixture.h"

namespace vantrell::tests {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

class Approvals : public EngineFixture {
 protected:
  void ask(std::vector<PermissionOption> options) {
    client().onPermissionRequest({4, "Run ls", "{}", std::move(options)});
  }
  const std::vector<PermissionOption> usual{{"yes", "Allow", "allow_once"},
                                            {"no", "Deny", "reject_once"}};
};

TEST_F(Approvals, QuestionWaitsForTheUserAndTheAnswerGoesBack) {
  start();
  work("Go");
  ask(usual);
  EXPECT_EQ(run().status, RunRecordStatus::waitingApproval);
  EXPECT_EQ(run().statusMessage, "Run ls");
  EXPECT_EQ(events.back().message, "Run ls");
  EXPECT_FALSE(app->selected().canChangePermissionMode());
  ASSERT_NE(app->selected().permissionRequest(), nullptr);

  app->selected().respondToPermission("yes");
  EXPECT_THAT(client().answers, ElementsAre(Pair(4, "yes")));
  EXPECT_EQ(run().status, RunRecordStatus::running);
  EXPECT_EQ(run().statusMessage, "Continuing after your decision");
  EXPECT_EQ(app->selected().permissionRequest(), nullptr);
  app->selected().respondToPermission("yes");
  EXPECT_EQ(client().answers.size(), 1u) << "one question, one answer";
}

TEST_F(Approvals, QuestionGoesWithItsTurnAndItsClient) {
  start();
  for (const bool fails : {false, true}) {
    work("Go");
    ask(usual);
    if (fails) {
      client().fails(AgentError("It broke."));
    } else {
      client().finishes();
    }
    main.runReady();
    EXPECT_EQ(app->selected().permissionRequest(), nullptr);
    EXPECT_TRUE(app->selected().canChangePermissionMode());
    app->selected().respondToPermission("yes");
    EXPECT_TRUE(client().answers.empty()) << "it reaches nobody";
  }
}

TEST_F(Approvals, WithdrawnQuestionGoesAndTheRunGoesOn) {
  start();
  work("Go");
  ask(usual);
  client().onPermissionWithdrawn(3);
  EXPECT_NE(app->selected().permissionRequest(), nullptr) << "that was another one";
  client().onPermissionWithdrawn(4);
  EXPECT_EQ(app->selected().permissionRequest(), nullptr);
  EXPECT_EQ(run().status, RunRecordStatus::running);
  EXPECT_EQ(run().statusMessage, "Kimi is working");
  EXPECT_TRUE(client().answers.empty());
}

TEST_F(Approvals, RefusalUsesTheFirstRejectOrStopsTheTask) {
  start();
  work("Go");
  ask({{"yes", "Allow", "allow_once"},
       {"never", "Never", "reject_always"},
       {"no", "No", "reject_once"}});
  app->selected().rejectPermission();
  EXPECT_THAT(client().answers, ElementsAre(Pair(4, "never")));

  ask({{"yes", "Allow", "allow_once"}});
  app->selected().rejectPermission();
  EXPECT_EQ(client().answers.size(), 1u);
  EXPECT_EQ(client().cancels, 1);
  EXPECT_EQ(run().statusMessage, "Stopped by you.");
  EXPECT_EQ(app->selected().permissionRequest(), nullptr);
}

TEST_F(Approvals, OnlyTheRuntimesOwnAlwaysApproveRaisesTheMode) {
  const struct {
    PermissionOption option;
    bool raises;
  } cases[] = {
      {{"a", "Yes, and Always-Approve from now on", "allow_always"}, true},
      {{"a", "Always approve", "allow_always"}, false},
      {{"a", "always-approve", "allow_once"}, false},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.option.name);
    defaults->setText("grokPermissionMode.v1", "ask");
    start();
    work("Go");
    ask({each.option});
    app->selected().respondToPermission("a");
    EXPECT_EQ(model->settings.permissionMode() == GrokPermissionMode::fullAccess, each.raises);
    EXPECT_EQ(client().stops, 0) << "the client at work is left alone";
  }
}

TEST_F(Approvals, AnswerThatNoPersonGaveRaisesNothing) {
  start();
  work("Go");
  ask({{"a", "Always-Approve", "allow_always"}});
  model->approvals.respondToPermission(key, 4, "a", vantrell::Approvals::Answerer::standingOrder);
  EXPECT_THAT(client().answers, ElementsAre(Pair(4, "a")));
  EXPECT_EQ(model->settings.permissionMode(), GrokPermissionMode::ask);
  EXPECT_NE(defaults->text("grokPermissionMode.v1"), "full_access");
}

TEST_F(Approvals, QuestionOfAnotherConversationIsShownWhenItIsSelected) {
  start();
  work("Go");
  const auto asking = key;
  model->operations->newThread(key.workspaceID);
  ask(usual);
  EXPECT_EQ(app->selected().permissionRequest(), nullptr);
  app->selected().respondToPermission("yes");
  EXPECT_TRUE(client().answers.empty());
  model->navigation.selectThread(asking.threadID, asking.workspaceID);
  ASSERT_NE(app->selected().permissionRequest(), nullptr);
  app->selected().respondToPermission("made-up");  // an option that was not listed is passed on
  EXPECT_THAT(client().answers, ElementsAre(Pair(4, "made-up")));
}

TEST_F(Approvals, ModeChangesOnlyBetweenTurns) {
  start();
  work("Go");
  app->selected().setPermissionMode(GrokPermissionMode::auto_);
  EXPECT_EQ(model->settings.permissionMode(), GrokPermissionMode::ask);
  client().finishes();
  app->selected().setPermissionMode(GrokPermissionMode::ask);
  EXPECT_EQ(client().stops, 0) << "the same mode resets nothing";
  app->selected().setPermissionMode(GrokPermissionMode::fullAccess);
  EXPECT_EQ(client().stops, 1);
  EXPECT_EQ(defaults->text("grokPermissionMode.v1"), "full_access");

  app->selected().setWorkflowMode(TaskWorkflowMode::plan);
  EXPECT_EQ(model->settings.permissionMode(), GrokPermissionMode::ask)
      << "a plan never begins with full access";
  EXPECT_EQ(defaults->text("taskWorkflowMode.v1"), "plan");
}

class ImagineApprovals : public Approvals {
 protected:
  /// A turn and a picture at work, the latter with a question.
  void askFromImagine(std::vector<PermissionOption> options) {
    work("Go");
    others.insert(AgentProvider::grok);
    model->imagine->generateImagine("a fox", ImagineKind::image);
    generator = clients.back();
    clients.pop_back();  // client() stays the conversation's
    generator->opens("media");
    generator->onPermissionRequest({9, "Draw", "{}", std::move(options)});
  }
  const PermissionRequest* shown() { return app->selected().permissionRequest().get(); }

  std::shared_ptr<FakeAgentClient> generator;
};

TEST_F(ImagineApprovals, EachQuestionIsAnsweredWhereItWasAsked) {
  start();
  askFromImagine(usual);
  ASSERT_TRUE(shown());
  EXPECT_EQ(shown()->title, "Draw");
  EXPECT_EQ(execution().permissionRequest(), nullptr) << "it is no question of the conversation";

  // The conversation's own question comes first; the other one is not lost behind it.
  ask(usual);
  EXPECT_EQ(shown()->title, "Run ls");
  app->selected().respondToPermission("yes");
  EXPECT_THAT(client().answers, ElementsAre(Pair(4, "yes")));
  ASSERT_TRUE(shown());
  EXPECT_EQ(shown()->title, "Draw");
  const auto status = run().statusMessage;
  app->selected().respondToPermission("no");
  EXPECT_THAT(generator->answers, ElementsAre(Pair(9, "no")));
  EXPECT_EQ(client().answers.size(), 1u);
  EXPECT_EQ(run().statusMessage, status) << "the conversation's run had no part in it";
  EXPECT_FALSE(shown());
}

TEST_F(ImagineApprovals, RefusalWithoutAWayToSayNoCancelsIt) {
  start();
  askFromImagine({{"yes", "Allow", "allow_once"}});
  app->selected().rejectPermission();
  EXPECT_EQ(generator->cancels, 1);
  EXPECT_EQ(model->imagine->imagineProgress(), "Stopped");
  EXPECT_EQ(client().cancels, 0) << "the conversation goes on";
  EXPECT_FALSE(shown());
}

TEST_F(ImagineApprovals, ModeWaitsForItAndEndsItsClient) {
  start();
  askFromImagine(usual);
  client().finishes();
  app->selected().respondToPermission("yes");
  app->selected().setPermissionMode(GrokPermissionMode::auto_);
  EXPECT_EQ(model->settings.permissionMode(), GrokPermissionMode::ask) << "it is at work";
  generator->finishes();
  app->selected().setPermissionMode(GrokPermissionMode::auto_);
  EXPECT_EQ(model->settings.permissionMode(), GrokPermissionMode::auto_);
  EXPECT_EQ(generator->stops, 1);
  EXPECT_EQ(model->imagine->imagineState(), ConnectionState::idle());
  EXPECT_EQ(model->imagine->imagineProgress(), "");
}

}  // namespace
}  // namespace vantrell::tests
