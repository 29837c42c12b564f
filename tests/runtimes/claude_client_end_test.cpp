#include "runtimes/claude_client_fixture.h"

namespace vantrell {
namespace {

using tests::ClaudeAgentScript;
using ClaudeClientEnd = tests::ClaudeClientTest;

TEST_F(ClaudeClientEnd, DeathInATurnFailsThePromptInTheRuntimesWords) {
  open(ClaudeAgentScript().open().expectPrompt().say("a").line(R"(error  gone \n)").line("exit 3"));
  prompt();
  expectNotes({"says a", "turn failed: gone", "terminated: gone"});
  EXPECT_TRUE(failures_[0].isDisconnection());
  prompt();
  client_->cancel();
  await("turn failed: Claude Code is not connected.");
  EXPECT_TRUE(failures_[1].isDisconnection());
}

TEST_F(ClaudeClientEnd, SilentDeathIsToldByItsStatus) {
  for (const auto& [command, status] :
       {std::pair{"exit 0", "0"}, std::pair{"exit 42", "42"}, std::pair{"signal 9", "9"}}) {
    notes_.clear();
    open(ClaudeAgentScript().open().line(R"(error  \n )").line(command));
    expectNotes({std::string("terminated: Claude Code exited with status ") + status + "."});
  }
}

TEST_F(ClaudeClientEnd, StopFailsTheTurnWithoutATermination) {
  open(ClaudeAgentScript().open().expectPrompt().say("x").line("hang").line("exit 1"));
  prompt();
  await("says x");
  client_->stop();
  client_->stop();
  await("turn failed: Claude Code stopped.");
  EXPECT_TRUE(failures_[0].isDisconnection());
  EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20)));
  prompt();
  expectNotes({"says x", "turn failed: Claude Code stopped.",
               "turn failed: Claude Code is not connected."});
}

TEST_F(ClaudeClientEnd, RuntimeWithNothingInHandMayWriteItsSessionDown) {
  make(ClaudeAgentScript()
           .open()
           .expectPrompt()
           .send(tests::claude_frames::initOfATurn)
           .endTurn()
           .line("expect-end"),
       "echo stored > '" + folder_ / "session" + "'\n");
  listen();
  start();
  await("started");
  prompt();
  await("turn ended done");
  client_->stop();
  EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20)));
  EXPECT_EQ(tests::TemporaryFolder::contentOf(folder_ / "session"), "stored\n");
}

TEST_F(ClaudeClientEnd, ClosedInputFailsEachPromptAndNotTheClient) {
  open(ClaudeAgentScript()
           .open()
           .line("close-input")
           .say("deaf")
           // Nothing can be waited for any more but a signal.
           .line("raw {")
           .line("signal 19"));
  await("says deaf");
  for (int round = 0; round < 3; ++round) {
    notes_.clear();
    prompt();
    expectNotes({"turn failed: Broken pipe"});
  }
  client_->cancel();
  client_->stop();
  main_.runReady();
  EXPECT_EQ(notes_.size(), 1u) << "stop is no unexpected end, and nothing was pending";
}

TEST_F(ClaudeClientEnd, ClosedOutputLeavesTheTurnOpenUntilTheEnd) {
  open(ClaudeAgentScript().open().expectPrompt().line("close-output").line("hang"));
  prompt();
  client_->stop();
  expectNotes({"turn failed: Claude Code stopped."});
}

TEST_F(ClaudeClientEnd, HalfALineAtTheEndIsNeitherMessageNorLog) {
  open(ClaudeAgentScript().open().expectPrompt().line(R"(raw {"type":"result"})").line("exit 1"));
  prompt();
  const std::string text = "Claude Code exited with status 1.";
  expectNotes({"turn failed: " + text, "terminated: " + text});
  EXPECT_EQ(log_, "");
}

TEST_F(ClaudeClientEnd, LostClientDeliversNothingButItsCompletions) {
  open(ClaudeAgentScript().open().expectPrompt().say("x").line("hang"));
  prompt();
  await("says x");
  client_.reset();
  expectNotes({"says x", "turn failed: Claude Code stopped."});
}

TEST_F(ClaudeClientEnd, AnswersAfterItGoNowhere) {
  open(ClaudeAgentScript()
           .open()
           .ask("q1", R"({"subtype":"can_use_tool","title":"A"})")
           .line("exit 0"));
  await("terminated: Claude Code exited with status 0.");
  client_->respondToPermission(100000, "claude-allow-once");
  client_->cancel();
  main_.runReady();
  EXPECT_EQ(notes_.size(), 2u);
}

}  // namespace
}  // namespace vantrell
