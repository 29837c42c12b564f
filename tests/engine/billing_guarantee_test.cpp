// The promise: no key that lies in the user's environment ever reaches a subscription runtime,
// whichever way its program is started. Every way is the program's own; the programs are real and
// write down what they see.
#include <set>

#include "engine/providers/model_discovery.h"
#include "platform/http/http_client.h"
#include "platform/storage/user_defaults.h"
#include "platform/text/text.h"
#include "runtimes/catalog/locators.h"
#include "runtimes/catalog/provider_connectors.h"
#include "runtimes/wire/agent_client.h"
#include "support/acp_agent_script.h"
#include "support/runtime_programs.h"

namespace vantrell {
namespace {

using enum AgentProvider;
using Names = std::set<std::string>;
using Variables = std::map<std::string, std::string, std::less<>>;

/// What each runtime must not see.
const std::map<AgentProvider, Names> removed{
    {grok, {}},
    {codex, {"OPENAI_API_KEY", "CODEX_API_KEY"}},
    {kimi, {"KIMI_API_KEY", "MOONSHOT_API_KEY", "OPENAI_API_KEY", "ANTHROPIC_API_KEY"}},
    {glm,
     {"OPENAI_API_KEY", "ANTHROPIC_API_KEY", "XAI_API_KEY", "KIMI_API_KEY", "MOONSHOT_API_KEY"}},
    {claude,
     {"ANTHROPIC_API_KEY", "ANTHROPIC_AUTH_TOKEN", "ANTHROPIC_BASE_URL", "CLAUDE_CODE_USE_BEDROCK",
      "CLAUDE_CODE_USE_VERTEX", "CLAUDE_CODE_USE_FOUNDRY", "CLAUDECODE"}},
};

/// Others that vendors read. They lead these runtimes to no other bill, and stay the user's.
const Names others{"GEMINI_API_KEY",     "GOOGLE_API_KEY",   "AZURE_OPENAI_API_KEY",
                   "OPENROUTER_API_KEY", "DEEPSEEK_API_KEY", "MISTRAL_API_KEY",
                   "GROQ_API_KEY",       "ZAI_API_KEY",      "ZHIPU_API_KEY"};

class BillingGuarantee : public tests::RuntimeProgramsFixture {
 protected:
  BillingGuarantee() {
    keys_ = others;
    for (const auto& [provider, names] : removed) keys_.insert(names.begin(), names.end());
    for (const auto& name : keys_) process_.set(name, "secret");
    process_.set("CLAUDE_CODE_ENTRYPOINT", "somebody else");
    // A runtime found by the login shell gets its PATH, and nothing else from there.
    loginShell::keepFolders({"/from/login shell", "/usr/bin"});
  }

  /// Writes what it sees to a file of its own, complete when it has its name, then does the rest.
  void installWitness(AgentProvider provider, const std::string& rest = "exit 0") {
    install(provider, "/usr/bin/env -0 > \"$0.$$\"; mv \"$0.$$\" \"$0.seen.$1.$$\"\n" + rest);
  }
  /// Takes away what was seen, by one program each.
  std::vector<Variables> takeSeen() {
    std::vector<Variables> all;
    for (const auto& name : home_.names("programs")) {
      if (!name.contains(".seen.")) continue;
      all.push_back(environmentIn(home_ / ("programs/" + name)));
      std::filesystem::remove(home_ / ("programs/" + name));
    }
    return all;
  }
  static Variables environmentIn(const std::string& path) {
    Variables seen;
    const std::string dump = tests::TemporaryFolder::contentOf(path);
    for (const auto line : text::split(dump, '\0')) {
      const auto equals = line.find('=');
      if (equals != std::string_view::npos) {
        seen.emplace(line.substr(0, equals), line.substr(equals + 1));
      }
    }
    return seen;
  }

  void expectKept(AgentProvider provider, std::size_t programs) {
    const auto seen = takeSeen();
    EXPECT_EQ(seen.size(), programs) << "each was started and wrote down what it saw";
    for (const auto& environment : seen) {
      for (const auto& name : keys_) {
        EXPECT_EQ(environment.contains(name), !removed.at(provider).contains(name)) << name;
      }
      EXPECT_EQ(environment.at("CLAUDE_CODE_ENTRYPOINT"),
                provider == claude ? "vantrell" : "somebody else");
      EXPECT_TRUE(environment.at("PATH").ends_with(":/from/login shell")) << environment.at("PATH");
    }
  }

  /// The client of a turn, until its program has ended.
  void startClient(AgentProvider provider) {
    const auto client = connectors_.connector(provider).makeClient(
        {.workspacePath = home_.folder("project"), .workspaceName = "project"});
    ASSERT_TRUE(client);
    bool isOver = false;
    client->start(std::nullopt, [&](const auto&) { isOver = true; });
    EXPECT_TRUE(main_.runUntil([&] { return isOver; }));
    client->stop();
    EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20)));
  }

  Names keys_;
  std::unique_ptr<UserDefaults> defaults_ = UserDefaults::inMemory();
  HttpClient http_{main_};
  ProviderConnectorRegistry connectors_{{.main = main_,
                                         .pool = pool_,
                                         .defaults = *defaults_,
                                         .http = http_,
                                         .webhook = nullptr,
                                         .customExecutable = [this](AgentProvider provider) {
                                           return programs_.customExecutable(provider);
                                         }}};
};

TEST_F(BillingGuarantee, HoldsForTheClientOfATurn) {
  for (const auto& [provider, names] : removed) {
    SCOPED_TRACE(rawText(provider));
    installWitness(provider);
    EXPECT_TRUE(connectors_.connector(provider).isAvailable({}));
    startClient(provider);
    expectKept(provider, 1);
  }
}

TEST_F(BillingGuarantee, HoldsForQuestionsToTheProgram) {
  for (const auto& [provider, names] : removed) {
    SCOPED_TRACE(rawText(provider));
    installWitness(provider);
    runtimes_->refresh(provider);
    awaitAnswers();
    expectKept(provider, provider == codex || provider == claude ? 2 : 1);
  }
  for (const auto provider : {grok, codex}) {
    bool isAnswered = false;
    EXPECT_TRUE(discoverModels(provider, main_, programs_, home_.path(),
                               [&](const auto&) { isAnswered = true; }));
    EXPECT_TRUE(main_.runUntil([&] { return isAnswered; }));
    expectKept(provider, 1);
  }
}

TEST_F(BillingGuarantee, HoldsForLogInsInTheBackground) {
  const std::pair<AgentProvider, void (InstalledRuntimes::*)()> logIns[] = {
      {grok, &InstalledRuntimes::logIn},
      {codex, &InstalledRuntimes::logInCodex},
      {kimi, &InstalledRuntimes::logInKimi}};
  for (const auto& [provider, logIn] : logIns) {
    SCOPED_TRACE(rawText(provider));
    installWitness(provider);
    (*runtimes_.*logIn)();
    awaitLogin(provider);
    // The log-in, and what is asked behind it.
    expectKept(provider, provider == codex ? 3 : 2);
  }
}

TEST_F(BillingGuarantee, TerminalsThatARuntimeOpensAreTheUsersOwn) {
  // They belong to the project, not to the runtime: a test suite may need a key.
  tests::ACPAgentScript script;
  script.openSession()
      .expect("session/set_config_option")
      .result("{}")
      .request(71, "terminal/create",
               R"({"sessionId":"s1","command":"/bin/sh","args":["-c","/usr/bin/env -0 > )" +
                   (home_ / "programs/kimi.seen.terminal") + R"("]})")
      .expect(R"("id":71)")
      .request(72, "terminal/wait_for_exit", R"({"sessionId":"s1","terminalId":"${terminalId}"})")
      .expect(R"("id":72)")
      .line("exit 0");
  installWitness(kimi, "exec '" + tests::ACPAgentScript::program() + "' '" +
                           home_.file("script", script.text()) + "'");
  const auto client = connectors_.connector(kimi).makeClient(
      {.workspacePath = home_.folder("project"), .workspaceName = "project"});
  ASSERT_TRUE(client);
  bool hasEnded = false;
  std::string ending;
  client->onUnexpectedTermination = [&](const std::string& text) {
    ending = text;
    hasEnded = true;
  };
  client->start(std::nullopt, [](const auto&) {});
  EXPECT_TRUE(main_.runUntil([&] { return hasEnded; }));
  const auto terminal = environmentIn(home_ / "programs/kimi.seen.terminal");
  ASSERT_FALSE(terminal.empty()) << ending;
  std::filesystem::remove(home_ / "programs/kimi.seen.terminal");
  for (const auto& name : keys_) EXPECT_TRUE(terminal.contains(name)) << name;
  EXPECT_TRUE(terminal.contains("PATH") && terminal.at("PATH").starts_with(home_ / ".grok/bin:"));
  expectKept(kimi, 1);
}

}  // namespace
}  // namespace vantrell
