#include <gtest/gtest.h>
#include <signal.h>

#include "runtimes/codex_client_fixture.h"

namespace vantrell {
namespace {

using tests::CodexAgentScript;
using CodexClientEnd = tests::CodexClientTest;

const std::string disconnected = "turn failed: disconnected Codex disconnected.";

TEST_F(CodexClientEnd, DeathFailsWhatIsPendingAndThenSaysWhy) {
  const std::pair<std::string, std::string> cases[] = {
      {"", disconnected},                                                          // being started
      {CodexAgentScript().result(R"({"turn":{"id":"u1"}})").text(), disconnected}  // running
  };
  for (const auto& [answer, expected] : cases) {
    notes_.clear();
    open(CodexAgentScript()
             .openThread()
             .expectPrompt()
             .line(answer)
             .say("m", "a")
             .line("error  \x1b[2mgo\x1b[0;31mne\x1b[0m \\n")  // it colours its words
             .line("exit 3"));
    prompt();
    expectNotes({"says m a", expected, "terminated: gone"});
    prompt();
    consumeReset();
    awaitCount(5);
    EXPECT_EQ(notes_[3], disconnected) << "a dead client answers at once";
    EXPECT_EQ(notes_[4], "reset disconnected Codex disconnected.");
  }
}

TEST_F(CodexClientEnd, SilentDeathIsToldByItsStatus) {
  for (const auto& [command, status] :
       {std::pair{"exit 0", "0"}, std::pair{"exit 42", "42"}, std::pair{"signal 9", "9"}}) {
    notes_.clear();
    open(CodexAgentScript().openThread().line(R"(error  \n )").line(command));
    expectNotes({std::string("terminated: Codex exited with status ") + status + "."});
  }
}

TEST_F(CodexClientEnd, StopFailsTheTurnWithoutATermination) {
  open(CodexAgentScript().openThread().startTurn("u1").say("m", "x").hang().line("exit 1"));
  prompt();
  await("says m x");
  client_->stop();
  client_->stop();
  expectNotes({"says m x", disconnected});
  EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20)));
  prompt();
  start("t1");
  awaitCount(4);
  EXPECT_EQ(notes_[2], disconnected);
  EXPECT_EQ(notes_[3], "not started: disconnected Codex disconnected.");
}

TEST_F(CodexClientEnd, StopWhileStartingFailsTheStart) {
  make(CodexAgentScript().initialize().expect("thread/resume").say("m", "x").hang());
  listen();
  start("old");
  await("says m x");
  client_->stop();
  await("not started: disconnected Codex disconnected.");
}

// Storing its thread takes a runtime a moment after the end of its input.
TEST_F(CodexClientEnd, RuntimeAtRestMayFinishItsWorkAndOneAtWorkMayNot) {
  for (const bool isAtRest : {true, false}) {
    notes_.clear();
    const std::string file = configuration_.workspacePath + "/stored";
    std::filesystem::remove(file);
    configuration_.executable =
        folder_.file("codex", "#!/bin/sh\n" + CodexAgentScript::program() +
                                  " \"$1\"\nsleep 0.3\necho done > stored\n");
    std::filesystem::permissions(configuration_.executable, std::filesystem::perms::owner_all);
    CodexAgentScript script;
    script.openThread().startTurn("u1").say("m", "x");
    if (isAtRest) script.endTurn("u1").expectUsageRead();
    open(script.say("m", "end").hang());
    prompt();
    await("says m end");
    client_->stop();
    EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20)));
    EXPECT_EQ(std::filesystem::exists(file), isAtRest);
  }
}

TEST_F(CodexClientEnd, RuntimeThatTakesNoInputFailsEachRequestAndLivesOn) {
  open(CodexAgentScript()
           .openThread()
           .line("close-input")
           .say("m", "deaf")
           // Nothing can be waited for any more but a signal.
           .line("signal 19"));
  await("says m deaf");
  for (int round = 0; round < 3; ++round) {
    notes_.clear();
    prompt();
    expectNotes({"turn failed: protocolError Broken pipe"});
  }
  notes_.clear();
  client_->cancel();
  consumeReset();
  expectNotes({"reset protocolError Broken pipe"});
}

TEST_F(CodexClientEnd, ClosedOutputLeavesTheTurnOpenUntilTheEnd) {
  open(CodexAgentScript().openThread().expectPrompt().line("close-output").hang());
  prompt();
  client_->stop();
  expectNotes({disconnected});
}

TEST_F(CodexClientEnd, LostClientDeliversNothingButItsCompletions) {
  open(CodexAgentScript().openThread().startTurn("u1").say("m", "x").hang());
  prompt();
  await("says m x");
  client_.reset();
  expectNotes({"says m x", disconnected});
}

TEST_F(CodexClientEnd, TurnsThatNobodyWaitsForAreForgotten) {
  CodexAgentScript script;
  script.openThread();
  for (int i = 0; i < 500; ++i) {
    const std::string turn = "u" + std::to_string(i);
    script.notify("error", R"({"turnId":")" + turn + R"(","error":{"message":"early"}})");
    script.endTurn(turn, "failed").expectUsageRead();
  }
  open(script.say("m", "ready").startTurn("u7").endTurn("u7", "failed").hang());
  await("says m ready");
  prompt();
  expectNotes({"says m ready", "turn failed: protocolError Codex turn failed."});
}

}  // namespace
}  // namespace vantrell
