// The harness as a client really starts it: a program in its place writes down what it was given.
#include <filesystem>
#include <gmock/gmock.h>

#include "platform/http/http_client.h"
#include "platform/queues/manual_main_queue.h"
#include "platform/storage/user_defaults.h"
#include "runtimes/acp/acp_client.h"
#include "runtimes/catalog/provider_connectors.h"
#include "runtimes/local/local_runtime_service.h"
#include "support/environment.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {
namespace {

TEST(LocalHarness, RunsInTheProjectFromItsOwnHomeAgainstTheChosenModel) {
  const TemporaryFolder folder;
  const auto program = folder.program("grok",
                                      "#!/bin/sh\n"
                                      "printf '%s\\n' \"$@\" > \"$GROK_HOME/arguments\"\n"
                                      "printf '%s\\n' \"$PWD\" \"$VANTRELL_LOCAL_TOKEN\" \"$KEPT\" "
                                      "> \"$GROK_HOME/surroundings\"\n");
  const auto project = folder.folder("project");
  Environment environment;
  environment.set("KEPT", "as it was");
  environment.set("GROK_HOME", folder / "the user's own");

  LocalRuntimeConnection connection{
      LocalRuntimeKind::ollama, "Ollama", *Url::parse("http://127.0.0.1:11434/v1"), {}};
  const ProviderConnectorContext context{.workspacePath = project,
                                         .selectedModel = "second",
                                         .permissionMode = GrokPermissionMode::auto_};
  EXPECT_FALSE(localHarness(connection, context, program, folder.path())) << "no model, no client";
  connection.models = {{"first", "first", "", false, {}}, {"second", "second", "", false, {}}};
  const auto configuration = localHarness(connection, context, program, folder.path());
  ASSERT_TRUE(configuration);

  auto gone = context;
  gone.selectedModel = "gone";
  EXPECT_TRUE(localHarness(connection, gone, program, folder.path()));
  EXPECT_THAT(TemporaryFolder::contentOf(folder / "vantrell/local-agent/grok/config.toml"),
              testing::HasSubstr("model = \"first\""));
  ASSERT_TRUE(localHarness(connection, context, program, folder.path()));

  ManualMainQueue main;
  BackgroundPool pool(2);
  const auto client = ACPClient::make(*configuration, main, pool);
  EXPECT_EQ(client->provider(), AgentProvider::local);
  std::string end;
  client->onUnexpectedTermination = [&](const std::string& text) { end = text; };
  client->start(std::nullopt, [](const auto&) {});
  ASSERT_TRUE(main.runUntil([&] { return !end.empty(); }));
  EXPECT_EQ(end, "Local exited with status 0.");

  const std::string home = folder / "vantrell/local-agent/grok";
  EXPECT_EQ(TemporaryFolder::contentOf(home + "/arguments"),
            "--disable-web-search\n--permission-mode\nauto\nagent\n--model\nvantrell-local\n"
            "stdio\n");
  EXPECT_EQ(TemporaryFolder::contentOf(home + "/surroundings"),
            project + "\nstub-bearer-for-offline-route\nas it was\n");
  EXPECT_THAT(TemporaryFolder::contentOf(home + "/config.toml"),
              testing::HasSubstr("model = \"second\""));
  EXPECT_FALSE(std::filesystem::exists(folder / "the user's own"));
}

}  // namespace
}  // namespace vantrell::tests
