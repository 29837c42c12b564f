#include "platform/text/text.h"
#include "platform/values/uuid.h"
#include "runtimes/claude_client_fixture.h"

namespace vantrell {
namespace {

using tests::ClaudeAgentScript;
using ClaudeClientStart = tests::ClaudeClientTest;

TEST_F(ClaudeClientStart, NewSessionHasAnIdFromTheStart) {
  begin(ClaudeAgentScript()
            .expectLine(R"({"type":"control_request","request_id":"vantrell_1",)"
                        R"("request":{"subtype":"initialize","hooks":null}})")
            .answer(R"({"commands":[],"models":[]})"));
  expectNotes({"started"});
  EXPECT_TRUE(Uuid::parse(session_)) << session_;
  EXPECT_EQ(session_, text::lowercased(session_));
  EXPECT_TRUE(arguments().ends_with(
      "\n--permission-mode\ndefault\n--model\nsonnet\n--session-id=" + session_ + "\n"))
      << arguments();
  EXPECT_EQ(client_->provider(), AgentProvider::claude);
}

TEST_F(ClaudeClientStart, StoredSessionIsResumedWithoutAReplay) {
  configuration_.permissionMode = GrokPermissionMode::auto_;
  configuration_.effort = "high";
  begin(ClaudeAgentScript().open(), "Old one");
  expectNotes({"started replayed"});
  EXPECT_EQ(session_, "Old one");
  EXPECT_TRUE(arguments().ends_with(
      "\n--permission-mode\nauto\n--model\nsonnet\n--effort\nhigh\n--resume=Old one\n"))
      << arguments();
}

TEST_F(ClaudeClientStart, RefusalOfTheInitializationFailsIt) {
  begin(
      ClaudeAgentScript()
          .expect("initialize")
          .send(
              R"({"type":"control_response","response":{"request_id":"vantrell_1","subtype":"error"}})"));
  expectNotes({"not started: Claude Code rejected a control request."});
}

TEST_F(ClaudeClientStart, AnswerOfAnyOtherFormIsNotItsAnswer) {
  begin(ClaudeAgentScript()
            .expect("initialize")
            .send(R"({"type":"control_response","response":{"request_id":1}})")
            .send(R"({"type":"control_response","response":{"request_id":"vantrell_2"}})")
            .send(R"({"type":"control_response","response":{"request_id":"vantrell_01"}})")
            .send(R"({"type":"control_response","response":{"request_id":"vantrell_1"}})")
            // A second answer to the same request.
            .send(R"({"type":"control_response","response":{"request_id":"vantrell_1",)"
                  R"("subtype":"error"}})")
            .say("x"));
  expectNotes({"started", "says x"});
}

TEST_F(ClaudeClientStart, SessionThatCannotBeResumedFailsInClaudeCodesWords) {
  begin(ClaudeAgentScript()
            .expect("initialize")
            .line(R"(error No conversation found with session ID: old\n)")
            .send(tests::claude_frames::resumeFailed)
            .line("exit 1"),
        "old");
  expectNotes({"not started: No conversation found with session ID: old",
               "terminated: No conversation found with session ID: old"});
  EXPECT_EQ(log_, "No conversation found with session ID: old\n");
}

}  // namespace
}  // namespace vantrell
