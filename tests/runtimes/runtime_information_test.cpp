#include "runtimes/catalog/runtime_information.h"

#include <gtest/gtest.h>

#include "platform/storage/user_defaults.h"
#include "runtimes/catalog/locators.h"

namespace vantrell {
namespace {

TEST(RuntimeInformation, VersionIsWhatAProgramThatSucceededSaid) {
  EXPECT_EQ(versionIn({"codex-cli 0.169.0", 0}), "codex-cli 0.169.0");
  EXPECT_EQ(versionIn({"", 0}), std::nullopt);
  EXPECT_EQ(versionIn({"env: node: No such file or directory", 127}), std::nullopt);
  EXPECT_EQ(versionIn({"Permission denied", -1}), std::nullopt);
}

TEST(RuntimeInformation, SignInIsToldByTheStatusThenByWords) {
  using enum AgentProvider;
  // As version 2.1 of Claude Code prints it: only the status tells.
  const std::string printed = "{\n  \"loggedIn\": false,\n  \"authMethod\": \"none\"\n}";
  const std::tuple<AgentProvider, std::optional<bool>, std::vector<RuntimeAnswer>> cases[] = {
      {codex, true, {{"Not logged in", 0}, {"Logged in using ChatGPT", 1}, {"authenticated", 1}}},
      {codex, false, {{"Error: NOT LOGGED IN", 2}, {"please use login", 1}, {"authentication", 1}}},
      {codex, std::nullopt, {{"segmentation fault", 139}, {"", 1}, {"", -1}}},
      {claude, true, {{"{\"loggedIn\":false}", 0}, {"{\"loggedIn\":true}", 1}, {"logged in", 2}}},
      {claude, false, {{"{\"loggedIn\":false}", 2}, {"Not logged in", 2}, {printed, 1}, {"", 1}}},
      {claude, std::nullopt, {{"unknown command", 2}, {"", -1}}},
  };
  for (const auto& [provider, expected, answers] : cases) {
    for (const auto& answer : answers) {
      EXPECT_EQ(signedIn(*programOf(provider)->signIn, answer), expected) << answer.text;
    }
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
}

}  // namespace
}  // namespace vantrell
