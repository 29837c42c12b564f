// What the client of any dialect makes of a runtime that does not behave.
#include <algorithm>
#include <fmt/format.h>

#include "runtimes/acp/acp_client.h"
#include "runtimes/agent_client_fixture.h"
#include "runtimes/claude/claude_code_client.h"
#include "runtimes/codex/codex_app_server_client.h"
#include "support/acp_agent_script.h"
#include "support/claude_agent_script.h"
#include "support/codex_agent_script.h"

namespace vantrell {
namespace {

using tests::ACPAgentScript;
using tests::AgentScript;
using tests::AgentScriptText;
using tests::ClaudeAgentScript;
using tests::CodexAgentScript;

constexpr auto aWhile = std::chrono::seconds(20);

/// How a dialect says what the tests let it say, and what its client says of failures.
struct Dialect {
  std::string runtimeName;
  // Pieces of scripts.
  std::string handshake;  // up to the open session
  std::string beginTurn;
  std::string endTurn;
  std::string question;
  std::string answerToNothing;  // under an id that nobody waits for
  // Frames around a text, without their line feeds.
  std::pair<std::string, std::string> update;
  std::pair<std::string, std::string> request;  // that is refused with the text in the answer
  // Failures.
  std::string isMissing;
  std::string beforeStart;
  std::string stopped;
  std::string lost;  // empty: in the words of the end
  std::string afterEnd;
  bool logsOtherLines = false;
};

void PrintTo(const Dialect& dialect, std::ostream* out) {
  *out << dialect.runtimeName;
}

const Dialect dialects[] = {
    {.runtimeName = "Grok",
     .handshake = ACPAgentScript().openSession().text(),
     .beginTurn = ACPAgentScript().expectPrompt().text(),
     .endTurn = ACPAgentScript().endTurn().text(),
     .question = ACPAgentScript().request(7, "session/request_permission", "{}").text(),
     .answerToNothing = ACPAgentScript().send(R"({"id":99,"result":{}})").text(),
     .update = {R"({"method":"session/update","params":{"update":{"content":{"text":")",
                R"("}}}})"},
     .request = {R"({"id":1,"method":")", R"("})"},
     .isMissing = "The Grok CLI is not installed.",
     .beforeStart = "The model runtime disconnected.",
     .stopped = "The model runtime disconnected.",
     .lost = "The model runtime disconnected.",
     .afterEnd = "The model runtime disconnected."},
    {.runtimeName = "Codex",
     .handshake = CodexAgentScript().openThread().text(),
     .beginTurn = CodexAgentScript().startTurn("u1").text(),
     .endTurn = CodexAgentScript().endTurn("u1").expectUsageRead().text(),
     .question = CodexAgentScript().request("7", "item/fileChange/requestApproval", "{}").text(),
     .answerToNothing = CodexAgentScript().send(R"({"id":99,"result":{}})").text(),
     .update = {R"({"method":"item/agentMessage/delta","params":{"itemId":"m","delta":")",
                R"("}})"},
     .request = {R"({"id":1,"method":")", R"("})"},
     .isMissing = "The Codex executable is not installed.",
     .beforeStart = "Codex is not connected.",
     .stopped = "Codex disconnected.",
     .lost = "Codex disconnected.",
     .afterEnd = "Codex disconnected."},
    {.runtimeName = "Claude Code",
     .handshake = ClaudeAgentScript().open().text(),
     .beginTurn = ClaudeAgentScript().expectPrompt().text(),
     .endTurn = ClaudeAgentScript().endTurn().text(),
     .question = ClaudeAgentScript().ask("q", R"({"subtype":"can_use_tool"})").text(),
     .answerToNothing =
         ClaudeAgentScript()
             .send(R"({"type":"control_response","response":{"request_id":"vantrell_99"}})")
             .text(),
     .update = {R"({"type":"stream_event","event":{"type":"content_block_delta","delta":)"
                R"({"type":"text_delta","text":")",
                R"("}}})"},
     .request = {R"({"type":"control_request","request":{},"request_id":")", R"("})"},
     .isMissing = "The Claude Code CLI is not installed.",
     .beforeStart = "Claude Code is not connected.",
     .stopped = "Claude Code stopped.",
     .lost = "",
     .afterEnd = "Claude Code is not connected.",
     .logsOtherLines = true},
};

class HostileRuntime : public tests::AgentClientTest, public testing::WithParamInterface<Dialect> {
 protected:
  class Script : public AgentScript<Script> {
   public:
    explicit Script(const Dialect& dialect) : dialect_(dialect) {}
    Script& piece(const std::string& commands) {
      text_ += commands;
      return *this;
    }
    Script& say(const std::string& text) {
      return send(dialect_.update.first + text + dialect_.update.second);
    }
    /// An update, or a request that is refused, with so many bytes of text.
    Script& large(const std::pair<std::string, std::string>& frame, std::size_t bytes) {
      return line("raw " + frame.first)
          .line("bytes " + std::to_string(bytes))
          .line("raw " + frame.second + "\\n");
    }

   private:
    const Dialect& dialect_;
  };

  const Dialect& dialect() const { return GetParam(); }
  Script script() const { return Script(dialect()); }
  Script inTurn() const { return script().piece(opening() + beginningOfATurn()); }
  std::string opening() const override { return dialect().handshake; }
  std::string beginningOfATurn() const override { return dialect().beginTurn; }

  void make(const AgentScriptText& script) override {
    executable_ = program("runtime", "exec '" + AgentScriptText::program() + "' '" +
                                         folder_.file("script", script.withWaitAtTheEnd()) + "'\n");
    makeClient();
  }
  void makeClient() {
    const Environment environment{{"PATH", "/usr/bin:/bin"}};
    if (dialect().runtimeName == "Codex") {
      client_ = CodexAppServerClient::make({executable_, workspace_, {}, {}, {}, environment},
                                           main_, pool_);
    } else if (dialect().runtimeName == "Claude Code") {
      client_ = ClaudeCodeClient::make({executable_, workspace_, "sonnet", {}, {}, environment},
                                       main_, pool_);
    } else {
      client_ = ACPClient::make({.executable = executable_,
                                 .workspacePath = workspace_,
                                 .processEnvironment = environment,
                                 .terminalEnvironment = environment,
                                 .runtimeName = dialect().runtimeName},
                                main_, pool_);
    }
  }
  std::string lost(const std::string& words) const {
    return dialect().lost.empty() ? words : dialect().lost;
  }

  using AgentClientTest::describe;
  std::string describe(const AgentStartResult&) const override { return "started"; }
  std::string describeEnd(const JsonObject&) const override { return "well"; }

  std::string executable_;
  std::string workspace_ = project_;
};

// ---- that cannot be started, or goes ------------------------------------------------------------

TEST_P(HostileRuntime, ThatCannotBeStartedSaysWhy) {
  struct Case {
    std::string executable, workspace, expected;
  };
  const std::string good = program("good", "");
  const std::string noFormat = program("no-format", "");
  folder_.file("no-format",
               "\x7f"
               "ELF");
  const Case cases[] = {
      {folder_ / "none", project_, dialect().isMissing},
      {folder_.file("plain", "no program"), project_, dialect().isMissing},
      {project_, project_, dialect().isMissing},
      {noFormat, project_, "Exec format error"},
      {good, folder_ / "gone", folder_ / "gone" + ": No such file or directory"},
  };
  for (const auto& [executable, workspace, expected] : cases) {
    notes_.clear();
    executable_ = executable;
    workspace_ = workspace;
    makeClient();
    listen();
    start();
    prompt();
    expectNotes({"not started: " + expected, "turn failed: " + dialect().beforeStart});
  }
}

// Whether the handshake met an end or already a closed pipe, the user reads what the runtime said.
TEST_P(HostileRuntime, ThatEndsAtOnceFailsTheStartInItsLastWords) {
  for (const std::string end : {"exit 0", "exit 3", "signal 9", "close-input"}) {
    begin(script().line("error \x1b[31m gone \n").line(end));
    expectNotes({"not started: gone", "terminated: gone"});
  }
}

TEST_P(HostileRuntime, ThatDiesWhileItIsWrittenToTellsItsLastWords) {
  open(script().line("error out of seats\n").line("close-input").say("deaf").line("exit 3"));
  await("says deaf");
  prompt(std::string(1'000'000, 'x'));
  await("terminated: out of seats");
}

TEST_P(HostileRuntime, ThatDiesInATurnFailsItAndThenSaysWhyWithNothingBetween) {
  const auto& name = dialect().runtimeName;
  const std::pair<std::string, std::string> cases[] = {
      {"error  \x1b[2mgo\x1b[0;31mne\x1b[0m \\n\nexit 3", "gone"},  // coloured, as Codex does
      {"error \x1b[0m\nexit 4", name + " exited with status 4."},   // colour codes are no words
      {"raw {\"half\": \nexit 42", name + " exited with status 42."},
      {"signal 9", name + " exited with status 9."},
  };
  for (const auto& [end, words] : cases) {
    openTurn(script().piece(dialect().question).say("a").line(end));
    // Work of others keeps the main queue busy, and must not come between the two.
    bool isOver = false;
    std::function<void()> busybody = [&] {
      if (isOver) return;
      if (!notes_.empty() && notes_.back().starts_with("turn failed")) note("something else");
      main_.post(busybody);
    };
    main_.post(busybody);
    await("terminated: " + words);
    isOver = true;
    main_.runReady();
    ASSERT_EQ(notes_.size(), 4U);
    EXPECT_EQ(Lines(notes_.begin() + 1, notes_.end()),
              (Lines{"says a", "turn failed: " + lost(words), "terminated: " + words}));
    EXPECT_TRUE(failures_.back().isDisconnection());

    client_->respondToPermission(questions_.back().id, "yes");
    client_->cancel();
    prompt();
    awaitCount(5);
    EXPECT_EQ(notes_.back(), "turn failed: " + dialect().afterEnd) << "it answers at once";
  }
}

// ---- that is stopped ----------------------------------------------------------------------------

TEST_P(HostileRuntime, StopFailsTheTurnWithoutATermination) {
  openTurn(script().say("x").hang().line("exit 1"));
  await("says x");
  client_->stop();
  client_->stop();
  expectNotes({"says x", "turn failed: " + dialect().stopped});
  EXPECT_TRUE(failures_[0].isDisconnection());
  EXPECT_TRUE(Process::waitForAll(aWhile));
  prompt();
  start();
  expectNotes({"says x", "turn failed: " + dialect().stopped, "turn failed: " + dialect().afterEnd,
               "not started: " + dialect().afterEnd});
}

TEST_P(HostileRuntime, SilenceLastsUntilTheStop) {
  for (const bool starts : {true, false}) {
    log_.clear();
    starts ? begin(script().line("expect initialize").line("error ready"))
           : openTurn(script().line("error ready"));
    ASSERT_TRUE(main_.runUntil([&] { return log_.contains("ready"); }));
    main_.advance(std::chrono::hours(1));
    EXPECT_EQ(notes_, Lines{});
    client_->stop();
    expectNotes({(starts ? "not started: " : "turn failed: ") + dialect().stopped});
    EXPECT_TRUE(Process::waitForAll(aWhile));
  }
}

TEST_P(HostileRuntime, LostClientDeliversNothingButItsCompletions) {
  openTurn(script().say("x"));
  await("says x");
  client_.reset();
  expectNotes({"says x", "turn failed: " + dialect().stopped});
}

// Runtimes store the last answer when their input ends, and that takes them a moment.
TEST_P(HostileRuntime, AtRestMayFinishItsWorkAndAtWorkMayNot) {
  for (const bool isAtRest : {true, false}) {
    notes_.clear();
    std::filesystem::remove(project_ + "/stored");
    auto turn = inTurn();
    if (isAtRest) turn.piece(dialect().endTurn);
    const std::string path = folder_.file("script", turn.say("end").withWaitAtTheEnd());
    // Far from the two seconds of patience at one side, and at the other from the signal at once.
    const std::string moment = isAtRest ? "0.05" : "1";
    executable_ = program("runtime", "'" + AgentScriptText::program() + "' '" + path + "'\nsleep " +
                                         moment + "\necho done > stored\n");
    makeClient();
    listen();
    start();
    await("started");
    prompt();
    await("says end");
    client_->stop();
    EXPECT_TRUE(Process::waitForAll(aWhile));
    EXPECT_EQ(std::filesystem::exists(project_ + "/stored"), isAtRest);
  }
}

TEST_P(HostileRuntime, ClientWithoutCallbacksRunsATurnToItsEnd) {
  make(inTurn()
           .say("x")
           .line("send loose words")
           .line("error words")
           .piece(dialect().question)
           .piece(dialect().endTurn)
           .line("exit 1"));
  start();
  await("started");
  prompt();
  await("turn ended well");
  client_->start({}, nullptr);
  client_->sendPrompt("x", nullptr);
  main_.runReady();
}

// ---- that talks nonsense ------------------------------------------------------------------------

TEST_P(HostileRuntime, GarbageIsNoMessage) {
  auto garbage = script();
  for (const std::string bytes : {"\\x00\\x01\\xFE\\xFF", "[1,2]", "7", "null", "{", "}{", " ",
                                  R"({"method":"\xFF"})", R"({"type":"result)"}) {
    garbage.line("raw " + bytes + "\\n");
  }
  garbage.line("raw \\n\\n");
  garbage.line("raw {\"a\":" + std::string(100'000, '[') + "\\n");
  for (const std::string object :
       {"{}", R"({"id":null,"result":{}})", R"({"id":1e400,"result":{}})", R"({"type":7})",
        R"({"method":7})", R"({"method":"x","params":[]})",
        R"({"type":"assistant","message":[]})"}) {
    garbage.send(object);
  }
  openTurn(garbage.piece(dialect().answerToNothing).say("after").piece(dialect().endTurn));
  expectNotes({"says after", "turn ended well"});
  EXPECT_EQ(log_.contains("[1,2]\n7\nnull\n"), dialect().logsOtherLines) << log_.substr(0, 200);
  EXPECT_EQ(log_.empty(), !dialect().logsOtherLines);
}

// ---- that says too much -------------------------------------------------------------------------

TEST_P(HostileRuntime, LineOf64MebibytesArrivesWhole) {
  constexpr std::size_t size = 64U << 20;
  open(script().large(dialect().update, size).say("after"));
  await("says after");
  ASSERT_EQ(notes_.size(), 2U);
  EXPECT_EQ(notes_[0].size(), size + 5);
}

TEST_P(HostileRuntime, FloodOfUpdatesArrivesWholeAndInOrder) {
  constexpr int count = 5000;
  auto flood = script();
  for (int i = 0; i < count; ++i) flood.say("w" + std::to_string(i));
  // More than may be under way to the main queue at once.
  openTurn(flood.large(dialect().update, 3'000'000).piece(dialect().endTurn).line("exit 0"));
  await("terminated: " + dialect().runtimeName + " exited with status 0.");
  ASSERT_EQ(notes_.size(), count + 3U);
  for (int i = 0; i < count; ++i) ASSERT_EQ(notes_[i], "says w" + std::to_string(i));
  EXPECT_EQ(notes_[count].size(), 3'000'005U);
  EXPECT_EQ(notes_[count + 1], "turn ended well");
}

TEST_P(HostileRuntime, FloodOfErrorTextIsBounded) {
  constexpr std::size_t flood = 20'000'000;
  open(script()
           .line("error-bytes " + std::to_string(flood))
           .line("error \\nlast words")
           .line("exit 1"));
  awaitCount(1);
  EXPECT_TRUE(notes_[0].ends_with("e\nlast words"));
  EXPECT_GE(notes_[0].size(), std::size_t{1} << 20);
  EXPECT_LE(notes_[0].size(), std::size_t{3} << 20);
  EXPECT_EQ(log_.size(), flood + 11) << "the log loses nothing";
}

// ---- that does not listen -----------------------------------------------------------------------

TEST_P(HostileRuntime, ThatNeverReadsItsInputIsEnded) {
  auto deaf = script();
  // The answers to these repeat their text.
  for (int i = 0; i < 40; ++i) deaf.large(dialect().request, 4'000'000);
  openTurn(deaf.line("signal 19"));
  const std::string words = "The runtime no longer reads what it is sent, and was ended.";
  expectNotes({"turn failed: " + words, "terminated: " + words});
  EXPECT_TRUE(Process::waitForAll(aWhile));
}

TEST_P(HostileRuntime, ThatClosesItsOutputLeavesTheTurnOpenUntilItsEnd) {
  for (const bool isStopped : {true, false}) {
    openTurn(script().line("close-output").line("error mute").line(isStopped ? "hang" : "exit 5"));
    if (isStopped) {
      ASSERT_TRUE(main_.runUntil([&] { return log_ == "mute"; }));
      EXPECT_EQ(notes_, Lines{});
      client_->stop();
      expectNotes({"turn failed: " + dialect().stopped});
    } else {
      expectNotes({"turn failed: " + lost("mute"), "terminated: mute"});
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Dialects, HostileRuntime, testing::ValuesIn(dialects),
                         [](const auto& given) {
                           std::string name = given.param.runtimeName;
                           std::erase(name, ' ');
                           return name;
                         });

}  // namespace
}  // namespace vantrell
