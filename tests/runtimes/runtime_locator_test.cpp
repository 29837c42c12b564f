#include "runtimes/catalog/runtime_locator.h"

#include <gtest/gtest.h>
#include <unistd.h>

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

struct RuntimeRules {
  AgentProvider provider;
  std::string pathInFront;  // "~" stands for the home folder
  std::string missingPath;
};
const std::string usual = "/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin";
const RuntimeRules runtimeRules[] = {
    {grok, "~/.grok/bin:" + usual, ""},
    {codex, "/opt/homebrew/bin:/usr/local/bin:~/.local/bin", ":/usr/bin:/bin:/usr/sbin:/sbin"},
    {kimi, "~/.local/bin:~/.npm-global/bin:" + usual, ""},
    {glm, "~/.opencode/bin:~/.local/bin:~/.npm-global/bin:" + usual, ""},
    {claude, "~/.local/bin:~/.claude/local:~/.npm-global/bin:" + usual, ""},
};

std::string withHome(std::string text, const std::string& home) {
  for (auto at = text.find('~'); at != std::string::npos; at = text.find('~')) {
    text.replace(at, 1, home);
  }
  return text;
}

TEST_F(RuntimeLocatorTest, FoldersOfTheLoginShellComeLastAndOnce) {
  const std::string own = program("own/kimi");
  const std::string shells = program("shells/kimi");
  const std::vector<std::string> more{home_ / "shells", "/bin", "/more"};
  EXPECT_EQ(findExecutable(kimi, {}, {{"PATH", home_ / "own"}}, more), own);
  EXPECT_EQ(findExecutable(kimi, {}, {{"PATH", "/nowhere"}}, more), shells);
  for (const auto& [provider, pathInFront, missingPath] : runtimeRules) {
    SCOPED_TRACE(rawText(provider));
    const std::string front = withHome(pathInFront, home_.path());
    EXPECT_EQ(runtimeEnvironment(provider, {{"PATH", "/mine"}}, {"/mine", "/more"})["PATH"],
              front + ":/mine:/more");
    EXPECT_EQ(runtimeEnvironment(provider, {}, {"/more"})["PATH"], front + missingPath + ":/more");
    EXPECT_EQ(runtimeEnvironment(provider, {{"PATH", ""}})["PATH"], front)
        << "an empty entry would be the working folder";
  }
}

}  // namespace
}  // namespace vantrell
