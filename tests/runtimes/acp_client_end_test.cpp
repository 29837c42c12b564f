#include <ctime>
#include <gtest/gtest.h>
#include <signal.h>

#include "runtimes/acp_client_fixture.h"

namespace vantrell {
namespace {

using tests::ACPAgentScript;
using ACPClientEnd = tests::ACPClientTest;

const std::string disconnected = "turn failed: The model runtime disconnected.";

TEST_F(ACPClientEnd, DeathInATurnFailsThePromptAndThenSaysSoWithNothingBetween) {
  for (int round = 0; round < 20; ++round) {
    notes_.clear();
    open(ACPAgentScript()
             .openSession()
             .expectPrompt()
             .say("a")
             .line("error  gone \\n")
             .line("exit 3"));
    prompt();
    // Work of others keeps the main queue busy, and must not come between the two.
    bool isOver = false;
    std::function<void()> busybody = [&] {
      if (isOver) return;
      if (!notes_.empty() && notes_.back() == disconnected) note("something else");
      main_.post(busybody);
    };
    main_.post(busybody);
    await("terminated: gone");
    isOver = true;
    main_.runReady();
    ASSERT_EQ(notes_, (Lines{"says a", disconnected, "terminated: gone"}));
    prompt();
    awaitCount(4);
    EXPECT_EQ(notes_.back(), disconnected) << "a dead client answers at once";
  }
}

TEST_F(ACPClientEnd, SilentDeathIsToldByItsStatus) {
  for (const auto& [command, status] : {std::pair{"exit 0", "0"}, std::pair{"exit 42", "42"},
                                        std::pair{"signal 9", "9"}, std::pair{"signal 15", "15"}}) {
    notes_.clear();
    configuration_.runtimeName = "Kimi";
    open(ACPAgentScript().openSession().line(R"(error  \n )").line(command));
    expectNotes({std::string("terminated: Kimi exited with status ") + status + "."});
  }
}

TEST_F(ACPClientEnd, StopFailsTheTurnWithoutATermination) {
  open(ACPAgentScript().openSession().expectPrompt().say("x").line("hang").line("exit 1"));
  prompt();
  await("says x");
  client_->stop();
  client_->stop();
  expectNotes({"says x", disconnected});
  EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20)));
  prompt();
  expectNotes({"says x", disconnected, disconnected});
}

TEST_F(ACPClientEnd, StopInAReplayFailsTheStart) {
  make(ACPAgentScript()
           .expect("initialize")
           .result(R"({"agentCapabilities":{"loadSession":true}})")
           .expect("session/load")
           .say("x")
           .line("hang"));
  listen();
  start("old");
  await("says x");
  client_->stop();
  await("not started: The model runtime disconnected.");
}

TEST_F(ACPClientEnd, NothingOfARuntimeIsLeftBehind) {
  open(ACPAgentScript()
           .openSession()
           .request(1, "terminal/create",
                    R"({"command":"sh","args":["-c","sleep 1000 & sleep 1000"]})")
           .expect("terminalId")
           .say("${pid}")
           .line("hang")
           .line("hang"));
  awaitCount(1);
  const pid_t agent = std::stoi(notes_[0].substr(5));
  EXPECT_EQ(kill(agent, 0), 0);
  client_->stop();
  EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20)));
  EXPECT_NE(kill(agent, 0), 0);
}

TEST_F(ACPClientEnd, TerminalsOfADeadRuntimeEnd) {
  open(ACPAgentScript()
           .openSession()
           .request(1, "terminal/create", R"({"command":"sleep","args":["1000"]})")
           .expect("terminalId")
           .line("exit 1"));
  await("terminated: Grok exited with status 1.");
  EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20)));
}

TEST_F(ACPClientEnd, HalfALineAtTheEndIsNoMessage) {
  open(ACPAgentScript()
           .openSession()
           .line(R"(raw {"method":"session/update","params":{"update":{"content":{"text":"x"}}}})")
           .line("exit 1"));
  expectNotes({"terminated: Grok exited with status 1."});
}

TEST_F(ACPClientEnd, ClosedOutputLeavesTheTurnOpenUntilTheEnd) {
  open(ACPAgentScript().openSession().expectPrompt().line("close-output").line("hang"));
  prompt();
  client_->stop();
  expectNotes({disconnected});
}

TEST_F(ACPClientEnd, RuntimeThatTakesNoInputFailsEachRequestAndLivesOn) {
  open(ACPAgentScript()
           .openSession()
           .line("close-input")
           .say("deaf")
           // Nothing can be waited for any more but a signal.
           .line("error-bytes 1")
           .line("raw {")
           .line("signal 19"));
  await("says deaf");
  for (int round = 0; round < 3; ++round) {
    notes_.clear();
    prompt();
    expectNotes({"turn failed: Broken pipe"});
  }
  notes_.clear();
  client_->cancel();  // must not be taken for an answer
  prompt();
  expectNotes({"turn failed: Broken pipe"});
}

TEST_F(ACPClientEnd, ErrorTextIsLoggedAsItComesAndBytesThatAreNoTextAreNot) {
  open(ACPAgentScript()
           .openSession()
           .line(R"(error caf\xC3)")
           .say("half")
           .expectPrompt()
           .line(R"(error \xA9 )")
           .expectPrompt()
           .line(R"(error \xFF\xFE)")
           .line("exit 1"));
  await("says half");
  prompt();
  // Standard error is another pipe than that of the messages, and is waited for by itself.
  EXPECT_TRUE(main_.runUntil([this] { return log_ == "caf\xC3\xA9 "; })) << log_;
  prompt();
  await("terminated: caf\xC3\xA9");
  EXPECT_EQ(log_, "caf\xC3\xA9 ");
}

TEST_F(ACPClientEnd, FloodOfErrorTextIsBounded) {
  constexpr std::size_t flood = 20'000'000;
  open(ACPAgentScript()
           .openSession()
           .line("error-bytes " + std::to_string(flood))
           .line("error \\nlast words")
           .line("exit 1"));
  awaitCount(1);
  EXPECT_TRUE(notes_[0].ends_with("e\nlast words"));
  EXPECT_GE(notes_[0].size(), std::size_t{1} << 20);
  EXPECT_LE(notes_[0].size(), std::size_t{3} << 20);
  EXPECT_EQ(log_.size(), flood + 11) << "the log loses nothing";
}

TEST_F(ACPClientEnd, LineOf64MebibytesArrivesWhole) {
  constexpr std::size_t size = 64U << 20;
  open(ACPAgentScript()
           .openSession()
           .line(R"(raw {"method":"session/update","params":{"update":{"content":{"text":")")
           .line("bytes " + std::to_string(size))
           .line(R"(raw "}}}}\n)")
           .say("after")
           .line("hang"));
  await("says after");
  ASSERT_EQ(notes_.size(), 2U);
  EXPECT_EQ(notes_[0].size(), size + 5);
}

TEST_F(ACPClientEnd, UpdateLargerThanTheBoundOfWhatIsUnderWayLosesNothing) {
  open(
      ACPAgentScript()
          .openSession()
          .expectPrompt()
          .line(
              "raw {\"method\":\"session/update\",\"params\":{\"update\":{\"content\":{\"text\":\"")
          .line("bytes 3000000")
          .line("raw \"}}}}\\n")
          .say("1")
          .say("2")
          .endTurn()
          .line("exit 0"));
  prompt();
  await("terminated: Grok exited with status 0.");
  ASSERT_EQ(notes_.size(), 5U);
  EXPECT_EQ(notes_[1], "says 1");
  EXPECT_EQ(notes_[2], "says 2");
  EXPECT_EQ(notes_[3], R"(turn ended {"stopReason":"end_turn"})");
}

}  // namespace
}  // namespace vantrell
