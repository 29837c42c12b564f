#include "engine/providers/installed_runtimes.h"

#include <filesystem>
#include <latch>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "support/runtime_programs.h"

namespace vantrell {
namespace {

using namespace std::chrono_literals;
using enum AgentProvider;
using State = RuntimeInstallStatus::State;

constexpr AgentProvider five[] = {grok, codex, kimi, glm, claude};

class InstalledRuntimesTest : public tests::RuntimeProgramsFixture {
 protected:
  void logIn(AgentProvider provider) {
    switch (provider) {
      case grok: return runtimes_->logIn();
      case codex: return runtimes_->logInCodex();
      case kimi: return runtimes_->logInKimi();
      case glm: return runtimes_->setUpOpenCodeGLM();
      default: return runtimes_->logInClaude();
    }
  }
  /// How often the program was started with this first argument.
  std::size_t starts(AgentProvider provider, const std::string& argument) const {
    const auto log = tests::TemporaryFolder::contentOf(custom_.at(provider) + ".log");
    std::size_t count = 0;
    for (auto at = log.find(argument + "\n"); at != std::string::npos;
         at = log.find(argument + "\n", at + 1)) {
      ++count;
    }
    return count;
  }
  static constexpr const char* logging = "echo \"$1\" >> \"$0.log\"; ";
};

TEST_F(InstalledRuntimesTest, SaysWhatIsThereAtOnceAndTheRestWhenTheProgramHasAnswered) {
  struct Case {
    AgentProvider provider;
    std::optional<bool> signedIn;
  };
  // Only two have a question for it; the exit status answers it.
  for (const auto& [provider, signedIn] :
       {Case{grok, {}}, Case{codex, true}, Case{kimi, {}}, Case{glm, {}}, Case{claude, true}}) {
    SCOPED_TRACE(rawText(provider));
    const auto path = install(provider, "[ \"$1\" = --version ] && echo '  tool 1.2 '; exit 0");
    EXPECT_EQ(runtimes_->status(provider).state, State::checking);
    int announced = 0;
    const auto watch = changes_.observe(
        [&](const ChangeBatch& batch) { announced += batch.has(topics::runtimes) ? 1 : 0; });
    // No answer comes before the first announcement: it would pass through the pool.
    const auto isTold = std::make_shared<std::latch>(1);
    for (int thread = 0; thread < 2; ++thread) pool_.post([isTold] { isTold->wait(); });
    runtimes_->refresh(provider);
    EXPECT_EQ(runtimes_->status(provider), RuntimeInstallStatus::installed(path));
    main_.runReady();
    EXPECT_EQ(announced, 1);
    isTold->count_down();
    awaitAnswers();
    auto expected = RuntimeInstallStatus::installed(path);
    expected.version = "tool 1.2";
    expected.signedIn = signedIn;
    EXPECT_EQ(runtimes_->status(provider), expected);
    main_.runReady();
    EXPECT_EQ(announced, 2);
  }
  EXPECT_EQ(runtimes_->codexInstallStatus().path, custom_[codex]);
  EXPECT_EQ(runtimes_->openCodeInstallStatus().path, custom_[glm]);
}

TEST_F(InstalledRuntimesTest, ProgramThatFailsOrIsNoneIsInstalledWithoutAVersion) {
  install(grok, "echo no interpreter; exit 127");
  custom_[claude] = home_.file("programs/claude",
                               "\x7f"
                               "ELF that is none");
  ::chmod(custom_[claude].c_str(), 0755);
  for (const auto provider : {grok, claude}) {
    runtimes_->refresh(provider);
    awaitAnswers();
    auto expected = RuntimeInstallStatus::installed(custom_[provider]);
    expected.hasFailed = true;
    EXPECT_EQ(runtimes_->status(provider), expected);
  }
}

TEST_F(InstalledRuntimesTest, ProgramThatHangsEndsTheQuestionAtItsLimit) {
  install(codex, "exec sleep 1000");
  runtimes_->refreshCodexInstallStatus();
  main_.advance(14s);
  EXPECT_TRUE(runtimes_->isAsking());
  main_.advance(1s);
  // The version is given up; the question for the sign-in has a limit of its own.
  EXPECT_TRUE(main_.runUntil([&] {
    main_.advance(1s);
    main_.post([] {});
    return !runtimes_->isAsking();
  }));
  auto expected = RuntimeInstallStatus::installed(custom_[codex]);
  expected.hasRunOut = true;
  EXPECT_EQ(runtimes_->codexInstallStatus(), expected);
  // Its next answer takes that back.
  install(codex, "echo 1");
  runtimes_->refreshCodexInstallStatus();
  awaitAnswers();
  EXPECT_EQ(runtimes_->codexInstallStatus().version, "1");
  EXPECT_FALSE(runtimes_->codexInstallStatus().hasRunOut);
}

TEST_F(InstalledRuntimesTest, AnswerOfAnEarlierRefreshIsDropped) {
  const auto gate = home_ / "gate";
  ASSERT_EQ(::mkfifo(gate.c_str(), 0600), 0);
  install(kimi, "read go < '" + gate + "'; echo old");
  runtimes_->refreshKimiInstallStatus();
  const auto newer = custom_[kimi] = program("programs/newer", "echo new");
  runtimes_->refreshKimiInstallStatus();
  awaitAnswers();
  EXPECT_EQ(runtimes_->kimiInstallStatus().version, "new");
  std::ofstream(gate) << "go\n";
  EXPECT_TRUE(Process::waitForAll(20s));
  pool_.post([this] { main_.post([] {}); });
  main_.advance(1s);
  EXPECT_EQ(runtimes_->kimiInstallStatus().path, newer);
  EXPECT_EQ(runtimes_->kimiInstallStatus().version, "new");
}

TEST_F(InstalledRuntimesTest, MissingProgramIsMissingAndOthersHaveNone) {
  for (const auto provider : five) {
    if (::access(fmt::format("/usr/bin/{}", rawText(provider)).c_str(), X_OK) == 0) continue;
    custom_[provider] = home_ / "gone";
    runtimes_->refresh(provider);
    EXPECT_EQ(runtimes_->status(provider), RuntimeInstallStatus::missing()) << rawText(provider);
  }
  EXPECT_EQ(runtimes_->status(tasklet), RuntimeInstallStatus::missing());
  install(grok, "echo 1");
  runtimes_->refreshInstallStatus();
  runtimes_->noteMissing(grok);
  EXPECT_EQ(runtimes_->installStatus(), RuntimeInstallStatus::missing());
  EXPECT_TRUE(Process::waitForAll(20s));
  main_.runReady();
  EXPECT_EQ(runtimes_->installStatus(), RuntimeInstallStatus::missing());
}

TEST_F(InstalledRuntimesTest, WhatIsNotFoundWaitsForTheUsersOwnPathWhichIsReadOnce) {
  std::vector<std::function<void()>> readings;
  programs_.readUserPath = [&](std::function<void()> done) { readings.push_back(std::move(done)); };
  makeRuntimes();
  program("tools/kimi", "echo 7");
  install(grok, "echo 8");
  runtimes_->refreshAll();
  runtimes_->refreshAll();
  ASSERT_EQ(readings.size(), 1U);
  EXPECT_EQ(runtimes_->kimiInstallStatus().state, State::checking);
  EXPECT_TRUE(runtimes_->installStatus().isInstalled());
  loginShell::keepFolders({home_ / "tools"});
  readings[0]();
  EXPECT_EQ(runtimes_->kimiInstallStatus().path, home_ / "tools/kimi");
  awaitAnswers();
  EXPECT_EQ(runtimes_->kimiInstallStatus().version, "7");
  EXPECT_EQ(runtimes_->installStatus().version, "8");
  EXPECT_NE(runtimes_->claudeInstallStatus().state, State::checking);
}

TEST_F(InstalledRuntimesTest, ToAskSeveralIsNotOverBeforeTheLastHasAnswered) {
  std::function<void()> pathIsRead;
  programs_.readUserPath = [&](std::function<void()> done) { pathIsRead = std::move(done); };
  makeRuntimes();
  // The others are missing, and say so before it is asked and while it is.
  program("tools/claude", "[ $1 = auth ] && exit 1; echo 7");
  std::vector<bool> signedInWhenOver;
  const auto watch = changes_.observe([&](const ChangeBatch&) {
    if (!runtimes_->isAsking()) {
      signedInWhenOver.push_back(runtimes_->claudeInstallStatus().signedIn.has_value());
    }
  });
  runtimes_->refreshAll();
  loginShell::keepFolders({home_ / "tools"});
  pathIsRead();
  awaitAnswers();
  main_.runReady();
  EXPECT_EQ(signedInWhenOver, std::vector{true});
  signedInWhenOver.clear();
  runtimes_->refreshAll();
  awaitAnswers();
  main_.runReady();
  EXPECT_EQ(signedInWhenOver, std::vector{true}) << "also when the PATH is known";
}

// ---- signing in ---------------------------------------------------------------------------------

TEST_F(InstalledRuntimesTest, LogInShowsThatItRunsThenWhyItFailedThenTheFreshStatus) {
  struct Case {
    AgentProvider provider;
    std::string script;  // of "login"
    std::optional<std::string> failure;
  };
  const Case cases[] = {
      {grok, "echo ' no luck '; exit 1", "no luck"},
      {grok, "echo trouble >&2; exit 1", "trouble"},
      {grok, "exit 3", "Grok login failed."},
      {grok, "kill -9 $$", "Grok login failed."},
      {grok, "echo fine", {}},
      {codex, "echo no luck; exit 1", "Codex login did not complete."},
      {codex, "exit 0", {}},
      {kimi, "echo no luck; exit 1", "Kimi login did not complete."},
      {kimi, "exit 0", {}},
  };
  for (const auto& [provider, script, failure] : cases) {
    SCOPED_TRACE(std::string(rawText(provider)) + ": " + script);
    install(provider, "if [ \"$*\" = login ]; then " + script + "; exit; fi; echo 2.0");
    logIn(provider);
    EXPECT_TRUE(runtimes_->login(provider).isRunning);
    awaitLogin(provider);
    EXPECT_EQ(runtimes_->login(provider), (RuntimeLogin{.isRunning = false, .failure = failure}));
    EXPECT_EQ(runtimes_->failure().has_value(), failure.has_value());
    if (failure && runtimes_->failure()) {
      EXPECT_EQ(*runtimes_->failure(), *failure);
    }
    EXPECT_EQ(runtimes_->status(provider).version, "2.0") << "the status is refreshed in any case";
  }
}

TEST_F(InstalledRuntimesTest, LogInThatCannotBeStartedSaysWhatTheSystemSays) {
  custom_[codex] = program("programs/codex", "");
  home_.file("programs/codex", "#!/nowhere/interpreter\n");
  runtimes_->logInCodex();
  awaitLogin(codex);
  EXPECT_EQ(runtimes_->login(codex).failure, "No such file or directory");
  EXPECT_TRUE(runtimes_->codexInstallStatus().isInstalled());
}

TEST_F(InstalledRuntimesTest, LogInOfAMissingProgramOnlySaysThatItIsMissing) {
  for (const auto provider : five) {
    SCOPED_TRACE(rawText(provider));
    logIn(provider);
    EXPECT_EQ(runtimes_->status(provider), RuntimeInstallStatus::missing());
    EXPECT_EQ(runtimes_->login(provider), RuntimeLogin{});
  }
  EXPECT_EQ(runtimes_->failure(), std::nullopt);
  EXPECT_TRUE(desktop_->notes.empty());
}

TEST_F(InstalledRuntimesTest, OneLogInAtATimeAndItMayTakeAnHour) {
  const auto gate = home_ / "gate";
  ASSERT_EQ(::mkfifo(gate.c_str(), 0600), 0);
  install(kimi, logging + ("[ \"$1\" = login ] && read go < '" + gate + "'; echo done"));
  runtimes_->logInKimi();
  runtimes_->logInKimi();
  main_.advance(1h);
  EXPECT_TRUE(runtimes_->login(kimi).isRunning);
  std::ofstream(gate) << "go\n";
  awaitLogin(kimi);
  EXPECT_FALSE(runtimes_->login(kimi).failure);
  EXPECT_EQ(starts(kimi, "login"), 1U);
  logIn(kimi);
  EXPECT_TRUE(runtimes_->login(kimi).isRunning) << "the next one may begin";
  std::ofstream(gate) << "go\n";
  awaitLogin(kimi);
}

TEST_F(InstalledRuntimesTest, TwoLogInsAreCopiedForATerminalQuotedForItsShell) {
  custom_[glm] = program("it's here/open code", "");
  custom_[claude] = program("claude", "");
  runtimes_->setUpOpenCodeGLM();
  runtimes_->logInClaude();
  const std::string quoted = "'" + home_.path() + R"(/it'\''s here/open code')";
  EXPECT_EQ(desktop_->notes,
            (std::vector<std::string>{"copy " + quoted + " auth login --provider zai-coding-plan",
                                      "open ", "copy '" + home_.path() + "/claude' auth login",
                                      "open "}));
  desktop_->answer = std::unexpected("no terminal");
  runtimes_->copyInstallCommandAndOpenTerminal();
  EXPECT_TRUE(desktop_->notes[4].starts_with("copy curl ")) << desktop_->notes[4];
  EXPECT_EQ(runtimes_->failure(), std::nullopt) << "the command lies on the clipboard all the same";
}

TEST_F(InstalledRuntimesTest, OpensTheSelectedProjectInATerminalOrSaysWhyNot) {
  runtimes_->openProjectInTerminal("/project");
  EXPECT_EQ(desktop_->notes, std::vector<std::string>{"open /project"});
  EXPECT_EQ(runtimes_->failure(), std::nullopt);
  desktop_->answer = std::unexpected("no such program");
  runtimes_->openProjectInTerminal("/project");
  EXPECT_EQ(runtimes_->failure(), "Could not open Terminal: no such program");
}

}  // namespace
}  // namespace vantrell
