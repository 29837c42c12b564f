#include "runtimes/acp/acp_messages.h"

#include <gtest/gtest.h>

#include "runtimes/acp/grok_arguments.h"

namespace vantrell {
namespace {

using enum GrokPermissionMode;
using Texts = std::vector<std::string>;

TEST(AgentArguments, PutTheModeInFrontAndFullAccessBehind) {
  using Optional = std::optional<std::string>;
  const std::tuple<GrokPermissionMode, Optional, Optional, Texts> cases[] = {
      {auto_, {}, {}, {"--permission-mode", "auto", "agent", "stdio"}},
      {ask,
       "grok-4",
       "high",
       {"--permission-mode", "default", "agent", "--model", "grok-4", "--reasoning-effort", "high",
        "stdio"}},
      {fullAccess,
       "m",
       "low",
       {"agent", "--model", "m", "--reasoning-effort", "low", "--always-approve", "stdio"}},
      {auto_,
       "default",
       "default",
       {"--permission-mode", "auto", "agent", "--model", "default", "stdio"}},
  };
  for (const auto& [mode, model, effort, expected] : cases) {
    EXPECT_EQ(agentArguments(mode, model, effort), expected) << rawText(mode);
  }
}

PermissionRequest questionFor(std::string_view params) {
  return acp::permissionRequest(9, *json::parseObject(params), "Kimi");
}

TEST(ACPMessages, PermissionRequestShowsTitleAndInput) {
  const std::string nothing = "Kimi is requesting permission to continue.";
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"{}", "Run a tool", nothing},
      {R"({"toolCall":{"title":7,"rawInput":null}})", "Run a tool", nothing},
      {R"({"toolCall":{"title":"","rawInput":"ls"}})", "", R"("ls")"},
      {R"({"toolCall":{"title":"Write","rawInput":{"b":1,"a":[true]}}})", "Write",
       json::writePrettySorted(*json::parse(R"({"a":[true],"b":1})"))},
      // As Kimi Code 2.1 asks.
      {R"({"toolCall":{"toolCallId":"1:call","title":"Bash","content":[{"type":"content","content":)"
       R"({"type":"text","text":"Requesting approval to Running: ls -l"}}]}})",
       "Bash", "Requesting approval to Running: ls -l"},
      {R"({"toolCall":{"content":[{"content":{"text":"shown"}}],"rawInput":{}}})", "Run a tool",
       "{}"},
  };
  for (const auto& [params, title, detail] : cases) {
    const auto question = questionFor(params);
    EXPECT_EQ(question.id, 9);
    EXPECT_EQ(question.title, title) << params;
    EXPECT_EQ(question.detail, detail) << params;
    EXPECT_TRUE(question.options.empty());
  }
}

TEST(ACPMessages, PermissionOptionsWithoutIdOrNameAreSkipped) {
  const auto question = questionFor(
      R"({"options":[{"optionId":"a","name":"Yes"},{"optionId":"b"},{"name":"No"},3,)"
      R"({"optionId":1,"name":"x"},{"optionId":"c","name":"No","kind":"reject_once"}]})");
  ASSERT_EQ(question.options.size(), 2U);
  EXPECT_EQ(question.options[0].id, "a");
  EXPECT_EQ(question.options[0].name, "Yes");
  EXPECT_EQ(question.options[0].kind, "allow_once");
  EXPECT_EQ(question.options[1].id, "c");
  EXPECT_EQ(question.options[1].kind, "reject_once");
}

// ---- model options ------------------------------------------------------------------------------

std::vector<ProviderModelOption> optionsOf(std::string_view result) {
  return acp::modelOptions(*json::parseObject(result), "Kimi");
}

/// "id|label|detail|isDefault" of each.
Texts described(const std::vector<ProviderModelOption>& options) {
  Texts lines;
  for (const auto& option : options) {
    lines.push_back(option.id + "|" + option.label + "|" + option.detail +
                    (option.isDefault ? "|default" : "|"));
  }
  return lines;
}

const std::string leading = "default|Default|Use the provider's recommended model.|default";

TEST(ModelOptions, LeadWithTheDefaultAlsoWhenAnotherIsCurrent) {
  const auto options = optionsOf(
      R"({"configOptions":[{"id":"mode","options":[{"value":"x"}]},)"
      R"({"id":"model","currentValue":"k2","value":"k1","options":[)"
      R"({"value":"k1","id":"not this","name":"K One","label":"not this","description":"Fast"},)"
      R"({"id":"k2","label":"K Two"},{"value":"k3"},{"name":"nameless"},4]}]})");
  EXPECT_EQ(described(options),
            (Texts{leading, "k1|K One|Fast|", "k2|K Two|Available through Kimi.|default",
                   "k3|k3|Available through Kimi.|"}));
  for (const auto& option : options) {
    EXPECT_EQ(option.efforts, std::vector{ProviderEffortOption::defaultOption()});
  }
}

TEST(ModelOptions, AreFoundWhereverTheRuntimePutsThem) {
  const std::string options = R"("options":[{"value":"a"}])";
  const Texts one{leading, "a|a|Available through Kimi.|"};
  const Texts current{leading, "a|a|Available through Kimi.|default"};
  const std::pair<std::string, Texts> cases[] = {
      {R"({"session":{"configOptions":[{"id":"model",)" + options + "}]}}", one},
      {R"({"configOptions":[{"configId":"Default_MODEL_id",)" + options + "}]}", one},
      {R"({"configOptions":[{"id":"model","currentValue":5,"value":"a",)" + options + "}]}",
       current},
      // An "id" that is there decides, and the first of two models wins.
      {R"({"configOptions":[{"id":"x","configId":"model",)" + options + "}]}", {}},
      {R"({"configOptions":[{"id":"submodel"},{"id":"model",)" + options + "}]}", {}},
      // A list at the top hides the session's, also an empty one.
      {R"({"configOptions":[],"session":{"configOptions":[{"id":"model",)" + options + "}]}}", {}},
      {R"({"configOptions":[{"id":"model","options":[{"name":"no id"}]}]})", {}},
      {R"({"configOptions":[7,"model"]})", {}},
      {"{}", {}},
  };
  for (const auto& [result, expected] : cases)
    EXPECT_EQ(described(optionsOf(result)), expected) << result;
}

TEST(ModelOptions, EveryModelHasTheEffortsThatTheRuntimeNames) {
  // "effort" must be the whole name; "reasoning" may be a part of it.
  for (const auto& [name, count] :
       {std::pair{"EFFORT", 3U}, {"Reasoning_Effort", 3U}, {"effort_level", 1U}}) {
    const auto options =
        optionsOf(R"({"configOptions":[{"id":"model","options":[{"value":"a"},{"value":"b"}]},)"
                  R"({"id":")" +
                  std::string(name) +
                  R"(","options":[{"value":"high","description":"Slow"},{"id":"xhigh"},)"
                  R"({"name":"skipped"}]}]})");
    ASSERT_EQ(options.size(), 3U);
    for (const auto& option : options) {
      ASSERT_EQ(option.efforts.size(), count) << name;
      EXPECT_EQ(option.efforts[0], ProviderEffortOption::defaultOption());
      if (count > 1) {
        EXPECT_EQ(option.efforts[1], (ProviderEffortOption{"high", "High", "Slow"}));
        EXPECT_EQ(option.efforts[2],
                  (ProviderEffortOption{"xhigh", "Extra high",
                                        "Use xhigh reasoning effort for this session."}));
      }
    }
  }
}

}  // namespace
}  // namespace vantrell
