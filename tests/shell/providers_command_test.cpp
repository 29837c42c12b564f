// The commands that look at the agents' programs, with programs of the test's own in the home.
#include "shell/program_fixture.h"

namespace vantrell {
namespace {

class ProvidersProgram : public tests::TerminalProgram {
 protected:
  std::shared_ptr<tests::Record> command(std::vector<std::string> arguments) {
    auto options = vantrell(std::move(arguments));
    options.standardInput = ProcessOptions::Input::null;
    options.environment["OPENAI_API_KEY"] = options.environment["ANTHROPIC_API_KEY"] = "secret";
    options.environment["SHELL"] = shell;
    return run(std::move(options));
  }
  /// The command at a terminal of its own, which util-linux makes.
  std::shared_ptr<tests::Record> atATerminal(const std::string& commandLine) {
    auto options = vantrell({});
    const std::string program = options.executable;
    options.executable = "/usr/bin/script";
    // Its $SHELL runs the command, so the one to be asked is named behind it.
    options.arguments = {"-qec", "SHELL='" + shell + "' '" + program + "' " + commandLine,
                         "/dev/null"};
    options.environment["ANTHROPIC_API_KEY"] = "secret";
    options.standardInput = ProcessOptions::Input::null;
    return run(std::move(options));
  }
  JsonObject provider(const std::string& id) {
    const auto record = command({"providers", "--json"});
    EXPECT_EQ(code(record), 0) << record->error;
    const auto all = json::parse(record->output);
    EXPECT_TRUE(all && all->asArray()) << record->output;
    for (const auto& each : *all->asArray()) {
      if (json::textOr(*each.asObject(), "id", "") == id) return *each.asObject();
    }
    ADD_FAILURE() << "no " << id;
    return {};
  }
  static std::string next(const JsonObject& provider) {
    return json::textOr(*json::object(provider, "next"), "kind", "?");
  }

  /// The login shell knows the folder "tools", and notes that it was asked.
  void useShellWithTools() {
    shell = install("shell", "echo asked >> \"$0.log\"\nexec env PATH=" + (home / "tools") +
                                 ":/usr/bin:/bin /bin/sh -c \"$4\"");
  }
  std::size_t timesAsked() const {
    return std::ranges::count(tests::TemporaryFolder::contentOf(shell + ".log"), '\n');
  }
  /// An agent that lies at this place.
  std::string installAgent(const std::string& place) const {
    return install(place,
                   "exec '" + terminal::programFolder() + "/vantrell-practice-agent' \"$@\"");
  }

  std::string shell = "/bin/sh";
};

TEST_F(ProvidersProgram, TableSaysWhatIsThereAndWhatToDo) {
  install(".local/bin/claude", "[ $1 = auth ] && exit 1; echo '2.1 (Claude Code)'; echo more");
  const auto record = command({"providers"});
  EXPECT_EQ(code(record), 0);
  EXPECT_EQ(record->error, "");
  EXPECT_TRUE(record->output.contains("2.1 (Claude Code)  not signed in")) << record->output;
  EXPECT_TRUE(record->output.contains("sign in: vantrell login claude")) << record->output;
  EXPECT_TRUE(record->output.contains("!  claude")) << record->output;
  EXPECT_FALSE(record->output.contains("more"));
  EXPECT_FALSE(record->output.contains('\x1b')) << "no colours for a pipe";
  for (const std::string_view id : {"grok", "codex", "kimi", "glm", "local", "tasklet"}) {
    EXPECT_TRUE(record->output.contains("○  " + std::string(id))) << id;
  }
}

TEST_F(ProvidersProgram, JsonNamesTheNextStep) {
  EXPECT_EQ(next(provider("codex")), "install");
  const auto path =
      install(".local/bin/codex", "[ $1 = login ] && echo 'Not logged in' >&2 && exit 1; echo 1");
  auto codex = provider("codex");
  EXPECT_EQ(json::textOr(codex, "path", ""), path);
  EXPECT_EQ(json::textOr(codex, "version", ""), "1");
  EXPECT_EQ(json::boolean(codex, "signedIn"), false);
  EXPECT_EQ(json::boolean(codex, "answered"), true);
  EXPECT_EQ(next(codex), "login");
  install(".local/bin/codex", "exit 0");
  codex = provider("codex");
  EXPECT_EQ(json::boolean(codex, "signedIn"), true);
  EXPECT_EQ(json::text(codex, "version"), nullptr);
  EXPECT_EQ(next(codex), "ready");
  install(".local/bin/kimi", "echo 2");
  EXPECT_EQ(next(provider("kimi")), "login_if_needed");
  EXPECT_EQ(next(provider("tasklet")), "set_up");
}

TEST_F(ProvidersProgram, ProgramsInTheLoginShellsPathAreFoundAndAsked) {
  const auto path = install("tools/kimi", "echo 3");
  install("tools/claude", "[ $1 = auth ] && exit 1; echo 4");
  useShellWithTools();
  const auto kimi = provider("kimi");
  EXPECT_EQ(json::textOr(kimi, "path", ""), path);
  EXPECT_EQ(json::textOr(kimi, "version", ""), "3");
  const auto claude = provider("claude");
  EXPECT_EQ(json::textOr(claude, "version", ""), "4");
  EXPECT_EQ(json::boolean(claude, "signedIn"), false);
}

TEST_F(ProvidersProgram, RunFromAMenuFindsWhatTheLoginShellKnows) {
  installAgent("tools/kimi");
  auto record = command({"run", "--provider", "kimi", "SAY:hi"});
  EXPECT_EQ(code(record), 2);
  EXPECT_TRUE(record->error.contains("Kimi Code is not installed.")) << record->error;
  useShellWithTools();
  for (const auto& arguments : {std::vector<std::string>{"run", "--provider", "kimi", "SAY:hi"},
                                std::vector<std::string>{"run", "SAY:hi"}}) {
    record = command(arguments);
    EXPECT_EQ(code(record), 0) << record->error;
    EXPECT_TRUE(record->output.contains("✓ Kimi finished the task.")) << record->output;
  }
  EXPECT_EQ(timesAsked(), 2U) << "once for each start";
}

TEST_F(ProvidersProgram, RunFromAMenuStartsAProgramWhoseInterpreterTheLoginShellKnows) {
  install(".local/bin/kimi", "");
  home.file(".local/bin/kimi", "#!/usr/bin/env tool-interpreter\n");
  install("tools/tool-interpreter",
          "shift; exec '" + terminal::programFolder() + "/vantrell-practice-agent' \"$@\"");
  useShellWithTools();
  const auto record = command({"run", "--provider", "kimi", "SAY:hi"});
  EXPECT_EQ(code(record), 0) << record->output << record->error;
}

TEST_F(ProvidersProgram, RunAtATerminalAsksTheLoginShellOnlyForWhatItDoesNotFind) {
  if (::access("/usr/bin/script", X_OK) != 0) GTEST_SKIP() << "no program to make a terminal";
  useShellWithTools();
  installAgent(".local/bin/kimi");
  auto record = atATerminal("run SAY:hi");
  EXPECT_EQ(code(record), 0) << record->output;
  EXPECT_EQ(timesAsked(), 0U);
  installAgent("tools/grok");
  record = atATerminal("run --provider grok SAY:hi");
  EXPECT_EQ(code(record), 0) << record->output;
  EXPECT_EQ(timesAsked(), 1U);
  EXPECT_EQ(code(atATerminal("run --practice SAY:hi")), 0);
  EXPECT_EQ(timesAsked(), 1U) << "the practice agent needs no PATH";
}

TEST_F(ProvidersProgram, WelcomeShowsWhatTheLoginShellKnows) {
  const auto path = installAgent("tools/opencode");
  useShellWithTools();
  const auto record = command({});
  EXPECT_EQ(code(record), 0) << record->error;
  EXPECT_TRUE(record->output.contains(path)) << record->output;
  EXPECT_TRUE(record->output.contains("vantrell run \"explain this project\"")) << record->output;
  EXPECT_EQ(timesAsked(), 1U);
}

TEST_F(ProvidersProgram, DamagedSettingsAreToldAndKeepNobodyFromLooking) {
  EXPECT_EQ(code(command({"settings", "kimi-path", install("my/kimi", "echo 4")})), 0);
  const std::string settings = "config/vantrell/defaults.sqlite";
  ASSERT_TRUE(std::filesystem::exists(home / settings));
  home.file(settings, std::string(5000, 'x'));
  for (const auto& arguments :
       {std::vector<std::string>{"providers"}, std::vector<std::string>{"providers", "--json"},
        std::vector<std::string>{"login", "kimi"}}) {
    const auto record = command(arguments);
    EXPECT_TRUE(
        record->error.starts_with("vantrell: The paths that are set for programs are "
                                  "not used now. "))
        << record->error;
    EXPECT_TRUE(record->error.contains(home / settings)) << record->error;
    EXPECT_EQ(code(record), arguments[0] == "login" ? 1 : 0);
  }
  EXPECT_EQ(tests::TemporaryFolder::contentOf(home / settings), std::string(5000, 'x'));
}

TEST_F(ProvidersProgram, StoredPathCountsAndAUselessOneIsTold) {
  const auto path = install("my/kimi", "echo 4");
  EXPECT_EQ(code(command({"settings", "kimi-path", path})), 0);
  EXPECT_EQ(json::textOr(provider("kimi"), "path", ""), path);
  std::filesystem::remove(path);
  EXPECT_EQ(json::textOr(provider("kimi"), "unusableCustomPath", ""), path);
  install(".local/bin/kimi", "echo 5");
  EXPECT_EQ(json::textOr(provider("kimi"), "version", ""), "5") << "the usual places follow";
  // What every message says about it can be typed.
  EXPECT_TRUE(command({"providers"})->output.contains("vantrell settings kimi-path "));
  EXPECT_TRUE(command({"login", "grok"})->error.contains("vantrell settings grok-path "));
}

TEST_F(ProvidersProgram, LookingCreatesNothing) {
  command({"providers"});
  EXPECT_FALSE(std::filesystem::exists(home / "config"));
  EXPECT_FALSE(std::filesystem::exists(home / "data"));
}

// ---- log-in -------------------------------------------------------------------------------------

TEST_F(ProvidersProgram, LogInShowsWhatTheProgramSaysAndItsFailure) {
  install(".local/bin/codex",
          "[ \"$*\" = login ] || exit 0; echo \"open this link, key ${OPENAI_API_KEY-none}\"; exit "
          "${FAIL-0}");
  auto record = command({"login", "codex"});
  EXPECT_EQ(code(record), 0);
  EXPECT_TRUE(record->output.contains("open this link, key none\n")) << record->output;
  EXPECT_TRUE(record->output.contains("ChatGPT / Codex is signed in.")) << record->output;
  install(".local/bin/codex", "exit 9");
  record = command({"login", "codex"});
  EXPECT_EQ(code(record), 1);
  EXPECT_EQ(record->error, "vantrell: Codex login did not complete.\n");
  install(".local/bin/kimi", "kill -INT $$");
  record = command({"login", "kimi"});
  EXPECT_EQ(code(record), 130);
  EXPECT_EQ(record->error, "vantrell: Kimi login did not complete.\n");
}

TEST_F(ProvidersProgram, LogInWithQuestionsWantsATerminalAndGetsThisOne) {
  const auto path =
      install(".local/bin/claude",
              "[ \"$*\" = 'auth login' ] || exit 0\n"
              "test -t 0 && test -t 1 && echo \"at a terminal, key ${ANTHROPIC_API_KEY-none}, "
              "as ${CLAUDE_CODE_ENTRYPOINT}\"");
  auto record = command({"login", "claude"});
  EXPECT_EQ(code(record), 1);
  EXPECT_TRUE(record->error.contains("'" + path + "' auth login")) << record->error;
  if (::access("/usr/bin/script", X_OK) != 0) GTEST_SKIP() << "no program to make a terminal";
  record = atATerminal("login claude");
  EXPECT_EQ(code(record), 0) << record->output;
  EXPECT_TRUE(record->output.contains("at a terminal, key none, as vantrell")) << record->output;
}

TEST_F(ProvidersProgram, LogInOfAMissingOrUnknownProviderSaysWhatToDo) {
  auto record = command({"login", "grok"});
  EXPECT_EQ(code(record), 1);
  EXPECT_TRUE(record->error.contains("https://x.ai/cli/install.sh")) << record->error;
  record = command({"login", "codx"});
  EXPECT_EQ(code(record), 2);
  EXPECT_TRUE(record->error.contains("Did you mean codex?")) << record->error;
  EXPECT_EQ(code(command({"login", "tasklet"})), 2);
  EXPECT_EQ(code(command({"login"})), 2);
}

}  // namespace
}  // namespace vantrell
