#include "runtimes/codex/codex_discovery.h"

#include <gtest/gtest.h>

#include "platform/queues/manual_main_queue.h"
#include "runtimes/codex/codex_messages.h"
#include "support/codex_agent_script.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

using tests::CodexAgentScript;

std::string told(const std::vector<ProviderModelOption>& models) {
  std::string lines;
  for (const auto& [id, label, detail, isDefault, efforts] : models) {
    lines += id + "|" + label + "|" + detail + (isDefault ? "|default:" : "|:");
    for (const auto& effort : efforts) lines += " " + effort.id;
    lines += "\n";
  }
  return lines;
}

const std::string ownChoice = "default|Default|Use the provider's recommended model.|default:";

TEST(CodexModels, OwnChoiceLeadsWithTheEffortsOfTheDefaultModel) {
  struct Case {
    std::string result, expected;
  };
  const Case cases[] = {
      {R"({"data":[{"id":"x","model":"a","displayName":"A","description":"first"},)"
       R"({"model":"b","isDefault":true,"supportedReasoningEfforts":[)"
       R"({"reasoningEffort":"low","description":"quick"},{"description":"none"},7,)"
       R"({"reasoningEffort":"xhigh"}]},{"model":"c","isDefault":true}]})",
       ownChoice + " default low xhigh\na|A|first|: default\nb|b||default: default low xhigh\n"
                   "c|c||default: default\n"},
      {R"({"data":[{"model":"h","hidden":true},{"model":""},{"id":"x"},{"model":7},7,)"
       R"({"model":"a","hidden":false}]})",
       ownChoice + " default\na|a||: default\n"},
      {R"({"data":[{"model":"h","hidden":true}]})", ""},
  };
  for (const auto& [result, expected] : cases) {
    EXPECT_EQ(told(codex::modelOptions(*json::parseObject(result))), expected) << result;
  }
}

class CodexDiscoveryRun : public testing::Test {
 protected:
  ~CodexDiscoveryRun() override {
    EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20)));
    main_.runReady();
    EXPECT_EQ(results_.size(), runs_) << "one answer each";
  }

  void run(const CodexAgentScript& script) {
    folder_.file("project/app-server", script.text());
    ++runs_;
    CodexDiscovery::run(place_, main_, pool_, [this](CodexDiscoveryResult result) {
      results_.push_back(std::move(result));
    });
  }
  void await() {
    ASSERT_TRUE(main_.runUntil([this] { return results_.size() == runs_; }));
  }
  static CodexAgentScript introduced() {
    return CodexAgentScript()
        .expectLine(R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"clientInfo":)"
                    R"({"name":"vantrell","title":"vantrell","version":"discovery"},)"
                    R"("capabilities":{"experimentalApi":true}}})")
        .result("{}")
        .expectLine(R"({"jsonrpc":"2.0","method":"initialized"})")
        .expectLine(
            R"({"jsonrpc":"2.0","id":2,"method":"model/list","params":{"includeHidden":false}})")
        .expectLine(R"({"jsonrpc":"2.0","id":3,"method":"account/rateLimits/read","params":{}})");
  }

  tests::TemporaryFolder folder_;
  ManualMainQueue main_;
  BackgroundPool pool_{2};
  CodexDiscovery::Place place_{
      CodexAgentScript::program(), folder_.folder("project"), {{"PATH", "/usr/bin:/bin"}}};
  std::vector<CodexDiscoveryResult> results_;
  std::size_t runs_ = 0;
};

const std::string models = R"({"id":2,"result":{"data":[{"model":"a"}]}})";
const std::string usage = R"({"id":3,"result":{"rateLimits":{"planType":"plus"}}})";
const std::string refusedModels = R"({"id":2,"error":{"message":"no"}})";
const std::string refusedUsage = R"({"id":3,"error":{"message":"no"}})";

TEST_F(CodexDiscoveryRun, ResultIsWhatCameOfBothAnswers) {
  struct Case {
    std::vector<std::string> messages;
    std::string models;
    bool hasUsage;
  };
  const std::string unknown = ownChoice + " default\n";
  const std::string known = unknown + "a|a||: default\n";
  const Case cases[] = {
      {{models, usage}, known, true},
      {{usage, R"({"method":"configWarning","params":{}})", "garbage", models}, known, true},
      {{refusedModels, usage}, unknown, true},
      {{models, refusedUsage}, known, false},
      {{R"({"id":2,"result":7})", R"({"id":9,"result":{}})", usage}, unknown, true},
  };
  for (const auto& each : cases) {
    auto script = introduced();
    for (const auto& message : each.messages) script.send(message);
    run(script);
    await();
    EXPECT_EQ(told(results_.back().models), each.models);
    EXPECT_EQ(results_.back().usage.has_value(), each.hasUsage);
  }
}

TEST_F(CodexDiscoveryRun, EndOfTheProcessIsTheEnd) {
  run(introduced().send(models).line("exit 1"));
  await();
  EXPECT_EQ(results_.back().models.size(), 2U);
  EXPECT_FALSE(results_.back().usage);
  run(CodexAgentScript().line("exit 0"));
  await();
  EXPECT_EQ(told(results_.back().models), ownChoice + " default\n");
  place_.executable = "/nowhere/codex";
  run({});
  await();
  EXPECT_EQ(told(results_.back().models), ownChoice + " default\n");
}

TEST_F(CodexDiscoveryRun, SilenceEndsAfterEightSeconds) {
  const std::string seen = folder_ / "project/seen";
  const std::string program = folder_.program(
      "codex", "#!/bin/sh\nread line\necho x > seen\nwhile read line; do :; done\n");
  place_.executable = program;
  run({});
  ASSERT_TRUE(main_.runUntil([&] {
    main_.post([] {});
    return std::filesystem::exists(seen);
  }));
  main_.advance(std::chrono::milliseconds(7999));
  EXPECT_TRUE(results_.empty());
  main_.advance(std::chrono::milliseconds(1));
  await();
  EXPECT_EQ(told(results_.back().models), ownChoice + " default\n");
}

TEST_F(CodexDiscoveryRun, ResetIsToldInTheRuntimesWordOrAsAFailure) {
  const std::pair<std::string, std::string> cases[] = {
      {R"(send {"id":2,"result":{"outcome":"noCredit"}})", "noCredit"},
      {R"(send {"id":2,"error":{"message":"not now"}})", "failed: not now"},
      {"exit 1", "failed: Codex did not say what came of it."},
  };
  for (const auto& [line, expected] : cases) {
    CodexAgentScript script;
    script.expect("initialize").result("{}").expect("initialized");
    script.expect(R"("id":2,"method":"account/rateLimitResetCredit/consume")").line(line).hang();
    folder_.file("project/app-server", script.text());
    std::string told;
    CodexDiscovery::consumeUsageReset(place_, main_, pool_, [&](const auto& outcome) {
      told = outcome ? *outcome : "failed: " + outcome.error().localizedDescription();
    });
    ASSERT_TRUE(main_.runUntil([&] { return !told.empty(); }));
    EXPECT_EQ(told, expected);
  }
}

}  // namespace
}  // namespace vantrell
