// What `vantrell providers` says about a provider, from what is known of its program.
#include "shell/terminal/next_step.h"

#include <gtest/gtest.h>

namespace vantrell::shell {
namespace {

using enum AgentProvider;
using Kind = NextStep::Kind;

RuntimeInstallStatus installed(std::optional<bool> signedIn, bool hasRunOut = false) {
  auto status = RuntimeInstallStatus::installed("/it's/here");
  status.signedIn = signedIn;
  status.hasRunOut = hasRunOut;
  return status;
}

TEST(NextStep, FollowsFromWhatIsKnownAndOnlyWhatCanBeUsedIsTicked) {
  struct Case {
    std::string name;
    AgentProvider provider;
    RuntimeInstallStatus status;
    Kind kind;
    std::string mark;
    std::string command;
  };
  const auto missing = RuntimeInstallStatus::missing();
  const std::string look = R"('/it'\''s/here' --version)";
  const Case cases[] = {
      {"signed in", codex, installed(true), Kind::nothing, "✓", ""},
      {"not signed in", codex, installed(false), Kind::logIn, "!", "vantrell login codex"},
      {"cannot tell", kimi, installed({}), Kind::logInPerhaps, "✓", "vantrell login kimi"},
      {"hangs", kimi, installed({}, true), Kind::tryIt, "?", look},
      {"no version, but signed in", claude, installed(true, true), Kind::tryIt, "?", look},
      {"no version, not signed in", claude, installed(false, true), Kind::logIn, "!",
       "vantrell login claude"},
      {"has no program", tasklet, missing, Kind::setUp, "○", ""},
  };
  for (const auto& [name, provider, status, kind, expectedMark, command] : cases) {
    SCOPED_TRACE(name);
    const auto step = nextStep(provider, status, "zai-coding-plan/glm-4.7");
    EXPECT_EQ(step.kind, kind);
    EXPECT_EQ(step.command, command);
    EXPECT_EQ(mark(status, step), expectedMark);
    EXPECT_NE(step.words, "");
  }
  const auto absent = nextStep(grok, missing, "");
  EXPECT_EQ(absent.kind, Kind::install);
  EXPECT_EQ(mark(missing, absent), "○");
}

TEST(NextStep, ProgramThatHangsOrFailsIsNeitherReadyNorUnknown) {
  auto failed = installed({});
  failed.hasFailed = true;
  for (const auto& [status, why] :
       {std::pair(installed({}, true), "did not answer within 15 seconds"),
        std::pair(failed, "failed when it was asked")}) {
    const auto step = nextStep(kimi, status, "");
    EXPECT_TRUE(step.words.contains(why)) << step.words;
    EXPECT_FALSE(step.words.contains("ready")) << step.words;
    EXPECT_EQ(mark(status, step), "?");
  }
}

TEST(NextStep, ModelOutsideThePlanIsToBeSetUp) {
  const auto status = installed({});
  EXPECT_EQ(nextStep(glm, status, "zai-coding-plan/glm-4.7").kind, Kind::logInPerhaps);
  const auto step = nextStep(glm, status, "somebody/else");
  EXPECT_EQ(step.kind, Kind::setUp);
  EXPECT_EQ(mark(status, step), "!");
}

}  // namespace
}  // namespace vantrell::shell
