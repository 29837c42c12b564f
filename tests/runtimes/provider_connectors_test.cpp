#include "runtimes/catalog/provider_connectors.h"

#include <gmock/gmock.h>

#include "platform/http/http_client.h"
#include "platform/process/process.h"
#include "platform/queues/manual_main_queue.h"
#include "platform/storage/user_defaults.h"
#include "runtimes/wire/agent_client.h"
#include "support/codex_agent_script.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

using enum AgentProvider;
using testing::HasSubstr;
using testing::Not;

class ProviderConnectorsTest : public testing::Test {
 protected:
  ~ProviderConnectorsTest() override { EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20))); }

  /// Notes its arguments and its input beside itself.
  void install(const std::string& rest) {
    program_ = folder_.program(
        "program", "#!/bin/sh\nprintf '%s\\n' \"$@\" > \"$0.arguments\"\n" + rest + "\n");
  }
  /// Sends a prompt through a client that is made for this choice of model and effort, until the
  /// program has noted the text.
  void start(AgentProvider provider, std::string chosen, const std::string& ending,
             const std::string& text) {
    std::filesystem::remove(program_ + ending);
    ProviderConnectorContext context;
    context.workspacePath = folder_.folder("project");
    context.selectedModel = context.selectedEffort = std::move(chosen);
    const auto client = connectors_.connector(provider).makeClient(context);
    ASSERT_TRUE(client);
    client->start(std::nullopt, [&client](const auto& result) {
      if (result) client->sendPrompt("Go", [](const auto&) {});
    });
    EXPECT_TRUE(main_.runUntil([&] { return noted(ending).contains(text); }));
    client->stop();
  }
  std::string noted(const std::string& ending) {
    main_.post([] {});
    return tests::TemporaryFolder::contentOf(program_ + ending);
  }

  tests::TemporaryFolder folder_;
  ManualMainQueue main_;
  BackgroundPool pool_{2};
  std::unique_ptr<UserDefaults> defaults_ = UserDefaults::inMemory();
  HttpClient http_{main_};
  std::string program_;
  const ProviderConnectorRegistry connectors_{
      {.main = main_,
       .pool = pool_,
       .defaults = *defaults_,
       .http = http_,
       .webhook = nullptr,
       .customExecutable = [this](AgentProvider) { return std::optional(program_); }}};
};

TEST_F(ProviderConnectorsTest, TheUsualChoiceIsNoModelOrEffortOfCodex) {
  tests::CodexAgentScript script;
  script.openThread().expectPrompt().hang();
  install("tee \"$0.input\" | '" + tests::CodexAgentScript::program() + "' '" +
          folder_.file("script", script.text()) + "'");
  start(codex, "default", ".input", "turn/start");
  EXPECT_THAT(noted(".input"), Not(HasSubstr("\"model\"")));
  EXPECT_THAT(noted(".input"), Not(HasSubstr("\"effort\"")));
  start(codex, "other", ".input", "turn/start");
  EXPECT_THAT(noted(".input"), HasSubstr(R"("model":"other","effort":"other")"));
}

TEST_F(ProviderConnectorsTest, TheUsualChoiceIsNoModelOrEffortOfClaude) {
  install("");
  start(claude, "default", ".arguments", "--session-id");
  EXPECT_THAT(noted(".arguments"), HasSubstr("--model\nsonnet\n"));
  EXPECT_THAT(noted(".arguments"), Not(HasSubstr("--effort")));
  start(claude, "opus", ".arguments", "--session-id");
  EXPECT_THAT(noted(".arguments"), HasSubstr("--model\nopus\n--effort\nopus\n"));
}

TEST_F(ProviderConnectorsTest, OnlyModelsOfTheCodingPlanMakeAClientOfGLM) {
  install("");
  const std::tuple<std::optional<std::string>, bool> cases[] = {
      {std::nullopt, true},
      {"default", true},
      {"ZAI-Coding-Plan/GLM-5", true},
      {"zai-coding-plan/other", false},
      {"openai/gpt", false},
  };
  for (const auto& [model, isMade] : cases) {
    ProviderConnectorContext context;
    context.selectedModel = model;
    EXPECT_EQ(connectors_.connector(glm).makeClient(context) != nullptr, isMade)
        << model.value_or("-");
  }
}

}  // namespace
}  // namespace vantrell
