#include "runtimes/catalog/runtime_locator.h"

#include <future>
#include <gtest/gtest.h>
#include <set>
#include <unistd.h>

#include "platform/process/process.h"
#include "platform/storage/user_defaults.h"
#include "platform/text/text.h"
#include "runtimes/catalog/locators.h"
#include "support/environment.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

using enum AgentProvider;

class RuntimeLocatorTest : public testing::Test {
 protected:
  RuntimeLocatorTest() { process_.set("HOME", home_.path()); }

  std::string program(const std::string& name) const { return home_.program(name, "#!/bin/sh\n"); }

  tests::TemporaryFolder home_;
  tests::Environment process_;
};

/// The places in the home folder where each program is looked for, in order.
struct Places {
  AgentProvider provider;
  std::string name;
  std::vector<std::string> inHome;
};
const Places places[] = {
    {grok, "grok", {".grok/bin/grok"}},
    {local, "grok", {".grok/bin/grok"}},
    {codex, "codex", {".local/bin/codex", ".npm-global/bin/codex"}},
    {kimi, "kimi", {".local/bin/kimi", ".npm-global/bin/kimi"}},
    {glm,
     "opencode",
     {".opencode/bin/opencode", ".local/bin/opencode", ".npm-global/bin/opencode"}},
    {claude,
     "claude",
     {".local/bin/claude", ".claude/local/claude", ".npm-global/bin/claude",
      "node_modules/.bin/claude", ".yarn/bin/claude"}},
};

TEST_F(RuntimeLocatorTest, SearchesCustomPathThenHomeThenPathInOrder) {
  for (const auto& [provider, name, inHome] : places) {
    SCOPED_TRACE(name);
    // From the last choice to the first: each new program hides the ones behind it. A program that
    // is installed on this machine for everybody would get in between.
    const std::string second = program("second/" + name);
    const std::string first = program("first/" + name);
    const Environment environment{
        {"PATH", ":" + home_ / "none" + "::" + home_ / "first" + ":" + home_ / "second" + ":"}};
    bool isInstalled = false;
    for (const std::string folder : {"/opt/homebrew/bin/", "/usr/local/bin/", "/usr/bin/"}) {
      isInstalled = isInstalled || access((folder + name).c_str(), X_OK) == 0;
    }
    if (!isInstalled) {
      EXPECT_EQ(findExecutable(provider, {}, environment), first);
    }
    for (auto place = inHome.rbegin(); place != inHome.rend(); ++place) {
      const std::string path = program(*place);
      EXPECT_EQ(findExecutable(provider, {}, environment), path);
    }
    const std::string custom = program("my tools/" + name + "-custom");
    EXPECT_EQ(findExecutable(provider, custom, environment), custom);
    EXPECT_EQ(findExecutable(provider, "  " + custom + "\n", environment), custom);
    EXPECT_EQ(findExecutable(provider, "~/my tools/" + name + "-custom", environment), custom);
    // A custom path that is of no use does not end the search.
    for (const std::string wrong : {"", "  \n", "~/nowhere", "~/first", "~"}) {
      EXPECT_EQ(findExecutable(provider, wrong, environment), home_ / inHome.front()) << wrong;
    }
    for (const auto& place : inHome) std::filesystem::remove(home_ / place);
  }
}

TEST_F(RuntimeLocatorTest, SkipsFoldersRelativeEntriesAndFilesThatCannotBeExecuted) {
  home_.folder(".local/bin/kimi");
  home_.file(".npm-global/bin/kimi", "not executable");
  program("tools/kimi");
  const std::string right = program("bin/kimi");
  // A relative entry counts from the folder of this process, and nothing can be started by it.
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(home_.path());
  const auto found = findExecutable(kimi, {}, {{"PATH", "tools:./tools:" + home_ / "bin"}});
  std::filesystem::current_path(before);
  EXPECT_EQ(found, right);
  EXPECT_EQ(findExecutable(kimi, home_ / ".local/bin/kimi", {}), std::nullopt);
}

// ---- environments -------------------------------------------------------------------------------

/// The environment that a real child of this runtime sees.
Environment seenByAChild(AgentProvider provider, Environment base) {
  BackgroundPool pool(1);
  ProcessOptions options;
  options.executable = "/usr/bin/env";
  options.arguments = {"-0"};  // values may hold line feeds
  options.environment = runtimeEnvironment(provider, std::move(base));
  std::string output;
  std::promise<void> ended;
  Process::Handlers handlers;
  handlers.onOutput = [&output](std::string_view bytes) { output += bytes; };
  handlers.onExit = [&ended](ExitStatus) { ended.set_value(); };
  const auto process =
      Process::start(std::move(options), SerialQueue(pool, "test"), std::move(handlers));
  if (!process) return {};
  ended.get_future().wait();
  Environment seen;
  for (const auto line : text::split(output, '\0')) {
    if (const auto equals = line.find('='); equals != std::string_view::npos) {
      seen.emplace(line.substr(0, equals), line.substr(equals + 1));
    }
  }
  return seen;
}

/// Every variable that is known to lead some runtime to metered billing or to another server.
const std::set<std::string> knownKeys{
    "OPENAI_API_KEY",         "CODEX_API_KEY",           "KIMI_API_KEY",
    "MOONSHOT_API_KEY",       "ANTHROPIC_API_KEY",       "XAI_API_KEY",
    "ANTHROPIC_AUTH_TOKEN",   "ANTHROPIC_BASE_URL",      "CLAUDE_CODE_USE_BEDROCK",
    "CLAUDE_CODE_USE_VERTEX", "CLAUDE_CODE_USE_FOUNDRY", "CLAUDECODE"};

struct RuntimeRules {
  AgentProvider provider;
  std::string pathInFront;  // "~" stands for the home folder
  std::string missingPath;
  std::set<std::string> removed;
};
const std::string grokPath = "~/.grok/bin:/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin";
const RuntimeRules runtimeRules[] = {
    {grok, grokPath, "", {}},
    {codex,
     "/opt/homebrew/bin:/usr/local/bin:~/.local/bin",
     ":/usr/bin:/bin:/usr/sbin:/sbin",
     {"OPENAI_API_KEY", "CODEX_API_KEY"}},
    {kimi,
     "~/.local/bin:~/.npm-global/bin:/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin",
     "",
     {"KIMI_API_KEY", "MOONSHOT_API_KEY", "OPENAI_API_KEY", "ANTHROPIC_API_KEY"}},
    {glm,
     "~/.opencode/bin:~/.local/bin:~/.npm-global/bin:/opt/homebrew/bin:/usr/local/bin:/usr/bin:/"
     "bin",
     "",
     {"OPENAI_API_KEY", "ANTHROPIC_API_KEY", "XAI_API_KEY", "KIMI_API_KEY", "MOONSHOT_API_KEY"}},
    {claude,
     "~/.local/bin:~/.claude/local:~/.npm-global/bin:/opt/homebrew/bin:/usr/local/bin:/usr/bin:/"
     "bin",
     "",
     {"ANTHROPIC_API_KEY", "ANTHROPIC_AUTH_TOKEN", "ANTHROPIC_BASE_URL", "CLAUDE_CODE_USE_BEDROCK",
      "CLAUDE_CODE_USE_VERTEX", "CLAUDE_CODE_USE_FOUNDRY", "CLAUDECODE"}},
};

std::string withHome(std::string text, const std::string& home) {
  for (auto at = text.find('~'); at != std::string::npos; at = text.find('~')) {
    text.replace(at, 1, home);
  }
  return text;
}

TEST_F(RuntimeLocatorTest, ChildOfARuntimeSeesNoKeyOfMeteredBilling) {
  Environment base{{"PATH", "/mine:/usr/bin"}, {"HOME", home_.path()}, {"PLAIN", "a\nb"}};
  for (const auto& name : knownKeys) base[name] = "secret";
  for (const auto& [provider, pathInFront, missingPath, removed] : runtimeRules) {
    SCOPED_TRACE(rawText(provider));
    Environment expected = base;
    for (const auto& name : removed) expected.erase(name);
    expected["PATH"] = withHome(pathInFront, home_.path()) + ":/mine:/usr/bin";
    if (provider == claude) expected["CLAUDE_CODE_ENTRYPOINT"] = "vantrell";
    EXPECT_EQ(seenByAChild(provider, base), expected);
  }
}

TEST_F(RuntimeLocatorTest, FoldersOfTheLoginShellComeLastAndOnce) {
  const std::string own = program("own/kimi");
  const std::string shells = program("shells/kimi");
  const std::vector<std::string> more{home_ / "shells", "/bin", "/more"};
  EXPECT_EQ(findExecutable(kimi, {}, {{"PATH", home_ / "own"}}, more), own);
  EXPECT_EQ(findExecutable(kimi, {}, {{"PATH", "/nowhere"}}, more), shells);
  for (const auto& [provider, pathInFront, missingPath, removed] : runtimeRules) {
    SCOPED_TRACE(rawText(provider));
    const std::string front = withHome(pathInFront, home_.path());
    EXPECT_EQ(runtimeEnvironment(provider, {{"PATH", "/mine"}}, {"/mine", "/more"})["PATH"],
              front + ":/mine:/more");
    EXPECT_EQ(runtimeEnvironment(provider, {}, {"/more"})["PATH"], front + missingPath + ":/more");
    EXPECT_EQ(runtimeEnvironment(provider, {{"PATH", ""}})["PATH"], front)
        << "an empty entry would be the working folder";
  }
}

TEST_F(RuntimeLocatorTest, GrokEnvironmentOnlyAddsToThePathOfThisProcess) {
  process_.set("PATH", "/mine");
  process_.set("XAI_API_KEY", "kept");
  Environment expected = currentEnvironment();
  expected["PATH"] = withHome(grokPath, home_.path()) + ":/mine";
  EXPECT_EQ(GrokLocator::augmentedEnvironment(), expected);
}

}  // namespace
}  // namespace vantrell
