#include "runtimes/runtime_information.h"

#include <gtest/gtest.h>

#include "platform/user_defaults.h"
#include "runtimes/locators.h"

namespace vantrell {
namespace {

TEST(RuntimeInformation, VersionIsWhatAProgramThatSucceededSaid) {
  EXPECT_EQ(versionIn({"codex-cli 0.169.0", 0}), "codex-cli 0.169.0");
  EXPECT_EQ(versionIn({"2.1.197 (Claude Code)\nsecond line", 0}),
            "2.1.197 (Claude Code)\nsecond line");
  EXPECT_EQ(versionIn({"", 0}), std::nullopt);
  EXPECT_EQ(versionIn({"env: node: No such file or directory", 127}), std::nullopt);
  EXPECT_EQ(versionIn({"Permission denied", -1}), std::nullopt);
}

struct SignInCase {
  RuntimeAnswer answer;
  std::optional<bool> expected;
};

TEST(RuntimeInformation, CodexSignInByStatusThenByWords) {
  const SignInCase cases[] = {
      {{"", 0}, true},
      {{"Not logged in", 0}, true},
      {{"Not logged in", 1}, false},
      {{"Error: NOT LOGGED IN", 2}, false},
      {{"Logged in using ChatGPT", 1}, true},
      {{"authenticated", 1}, true},
      {{"unauthenticated", 1}, true},  // the word is in it; the status alone would be no better
      {{"please use login", 1}, false},
      {{"authentication failed", 1}, false},
      {{"segmentation fault", 139}, std::nullopt},
      {{"", 1}, std::nullopt},
      {{"", -1}, std::nullopt},
  };
  for (const auto& [answer, expected] : cases) {
    EXPECT_EQ(codexSignedIn(answer), expected) << answer.text << answer.status;
  }
}

TEST(RuntimeInformation, ClaudeSignInByStatusThenByWords) {
  const SignInCase cases[] = {
      {{"{\"loggedIn\":false}", 0}, true},
      {{"{\"loggedIn\":true}", 1}, true},
      {{"{\"loggedIn\":false}", 2}, false},
      {{"Not logged in", 2}, false},
      {{"You are logged in as ada", 2}, true},
      // As version 2.1 prints it: only the status tells.
      {{"{\n  \"loggedIn\": false,\n  \"authMethod\": \"none\"\n}", 1}, false},
      {{"", 1}, false},
      {{"unknown command", 2}, std::nullopt},
      {{"", -1}, std::nullopt},
  };
  for (const auto& [answer, expected] : cases) {
    EXPECT_EQ(claudeSignedIn(answer), expected) << answer.text << answer.status;
  }
}

TEST(RuntimeInformation, GrokModelsAreTheItemsOfItsList) {
  const auto options = grokModelsIn(
      "Available models:\n"
      "  * grok-5 (default)\n"
      "\t-  grok-5-fast  \r\n"
      "grok-unlisted\n"
      "- other-model\n"
      "* grok-code\n"
      "-\n"
      "\n");
  std::string told;
  for (const auto& [id, label, detail, isDefault, efforts] : options) {
    told += id + "|" + label + "|" + detail + (isDefault ? "|default\n" : "\n");
    ASSERT_EQ(efforts.size(), 4U);
    EXPECT_EQ(efforts[0].id, "default");
    EXPECT_EQ(efforts[3].label, "High");
  }
  EXPECT_EQ(told,
            "default|Default|Use the provider's recommended model.|default\n"
            "grok-5|grok-5|Recommended by Grok.|default\n"
            "grok-5-fast|grok-5-fast|Available through this Grok subscription.\n"
            "grok-code|grok-code|Available through this Grok subscription.\n");
  EXPECT_EQ(grokModelsIn("").size(), 1U);
}

TEST(RuntimeInformation, ConfiguredModelsAreTheUsersElseTheUsualOnes) {
  const auto defaults = UserDefaults::inMemory();
  EXPECT_EQ(ClaudeLocator::configuredModel(*defaults), "sonnet");
  EXPECT_EQ(OpenCodeLocator::configuredModel(*defaults), "zai-coding-plan/glm-4.7");
  ASSERT_TRUE(defaults->setText("claudeModel", " opus\n"));
  ASSERT_TRUE(defaults->setText("openCodeGLMModel", "  \n"));
  EXPECT_EQ(ClaudeLocator::configuredModel(*defaults), "opus");
  EXPECT_EQ(OpenCodeLocator::configuredModel(*defaults), "zai-coding-plan/glm-4.7");
  ASSERT_TRUE(defaults->setText("openCodeGLMModel", "ZAI-Coding-Plan/GLM-5"));
  EXPECT_TRUE(OpenCodeLocator::isPlanModel(OpenCodeLocator::configuredModel(*defaults)));
  EXPECT_FALSE(OpenCodeLocator::isPlanModel("zai-coding-plan/other"));
  EXPECT_FALSE(OpenCodeLocator::isPlanModel("openai/glm-4.7"));
}

}  // namespace
}  // namespace vantrell
