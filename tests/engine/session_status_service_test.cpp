#include "engine/turns/session_status_service.h"

#include <fmt/format.h>

#include "support/engine_fixture.h"

namespace vantrell::tests {
namespace {

using Phase = SessionStatusPhase;

class SessionStatusServiceTest : public EngineFixture {
 protected:
  /// What is answered, without its last sentence.
  std::string ask(const std::string& question = "status") {
    app->selected().send(question, {});
    const ChatEntry& answer = thread().entries.back();
    EXPECT_EQ(answer.kind, ChatEntryKind::assistant);
    EXPECT_EQ(answer.provider, std::nullopt);
    EXPECT_EQ(thread().entries[thread().entries.size() - 2].text, question);
    return answer.text.substr(0, answer.text.rfind("\n\n"));
  }
  Phase phase() { return model->status.report(key).phase; }
};

TEST_F(SessionStatusServiceTest, FollowsATaskThroughItsPhases) {
  start();
  EXPECT_EQ(ask(), "No task is currently running in this session.");
  send("Go");
  main.advance(std::chrono::seconds(5));
  EXPECT_EQ(ask(), "The session is starting Kimi.\n\n- **Running:** 5s");
  client().opens("session");
  main.advance(std::chrono::seconds(130));
  EXPECT_EQ(ask("Are you still working?"),
            "Yes—Kimi is still marked as working, but activity is currently quiet.\n\n"
            "- **Running:** 2m 15s\n- **Activity:** Quiet for 2m 10s");
  ChatAttachment file;
  file.path = "a.txt";
  app->selected().send("status", {file});  // with an attachment it is the agent's to answer
  client().onPermissionRequest({7, "Run npm test", "", {}});
  EXPECT_EQ(ask(),
            "Kimi is paused and waiting for your approval.\n\n- **Running:** 2m 15s\n"
            "- **Attention:** Run npm test\n- **Queue:** 1 prompt waiting");
  EXPECT_EQ(run().status, RunRecordStatus::waitingApproval);
  EXPECT_EQ(client().prompts.size(), 1U);
  EXPECT_EQ(thread().queuedPrompts.size(), 1U);

  app->selected().respondToPermission("y");
  app->selected().clearQueuedPrompts();
  client().finishes();
  EXPECT_EQ(phase(), Phase::completed);
  work("More");
  app->selected().stopWorking();
  EXPECT_EQ(phase(), Phase::idle) << "what was stopped is not told of";
  client().finishes();
  work("Again");
  app->selected().send("Later", {});
  client().fails(AgentError("no more disk"));
  EXPECT_EQ(ask(),
            "No—the session needs attention.\n\n- **Attention:** no more disk\n"
            "- **Queue:** 1 prompt waiting");
  app->selected().resetConnection();
  EXPECT_EQ(model->status.report(key).detail, "no more disk") << "now from its run";
  EXPECT_EQ(phase(), Phase::failed);
  EXPECT_EQ(saved().back().threads.front().entries.size(), thread().entries.size());
}

TEST_F(SessionStatusServiceTest, FirstQuestionNamesATaskWithoutATitleOfItsOwn) {
  start();
  for (const std::string title : {"New task", "New chat", "My title"}) {
    model->tree.updateThread(key, [&](ChatThread& each) { each.title = title; });
    ask("what\u2019s the status?");
    EXPECT_EQ(thread().title, title == "My title" ? title : "Session status");
  }
}

TEST_F(SessionStatusServiceTest, ClientsOfTheRemoteLinkGetTheAnswerAtOnce) {
  int updates = 0;
  start();
  const auto observation = model->changes.observe(
      [&](const ChangeBatch& batch) { updates += batch.has(topics::remoteSnapshot) ? 1 : 0; });
  main.advance(std::chrono::seconds(9));
  ask();
  main.runReady();
  EXPECT_EQ(updates, 1);
  EXPECT_EQ(thread().updatedAt, main.now());
}

TEST_F(SessionStatusServiceTest, AnswerGivenDuringAPlaybackSurvivesIt) {
  start();
  for (const bool succeeds : {true, false}) {
    for (const bool isOfATurn : {true, false}) {
      SCOPED_TRACE(fmt::format("succeeds {}, of a turn {}", succeeds, isOfATurn));
      model->operations->newThread(key.workspaceID);
      key = *model->selection.key();
      auto& runtime = execution();
      if (isOfATurn) {
        send("Go");
        EXPECT_EQ(runtime.turnEntryID, thread().entries.back().id);
      }
      model->intake.replayStarted(key);
      app->selected().send("status", {});
      model->intake.handle({{"sessionUpdate", "agent_message_chunk"},
                            {"messageId", "played"},
                            {"content", JsonObject{{"text", "Played back"}}}},
                           key);
      if (succeeds) {
        model->intake.startSucceeded(key);
      } else {
        model->intake.replayFailed(key);
      }
      std::vector<std::string> expected;
      if (succeeds) expected.emplace_back("Played back");
      if (isOfATurn) expected.emplace_back("Go");
      expected.emplace_back("status");
      auto found = texts();
      ASSERT_FALSE(found.empty());
      EXPECT_TRUE(found.back().ends_with("interrupt the agent.")) << found.back();
      found.pop_back();
      EXPECT_EQ(found, expected);
    }
  }
}

}  // namespace
}  // namespace vantrell::tests
