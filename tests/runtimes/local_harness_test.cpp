#include <gmock/gmock.h>

#include "runtimes/acp/acp_client.h"
#include "runtimes/catalog/provider_connectors.h"
#include "runtimes/local/local_runtime_service.h"
#include "support/environment.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {
namespace {

TEST(LocalHarness, TakesTheChosenModelElseTheFirst) {
  const TemporaryFolder folder;
  Environment environment;
  environment.set("KEPT", "as it was");
  LocalRuntimeConnection connection{
      LocalRuntimeKind::ollama, "Ollama", *Url::parse("http://127.0.0.1:11434/v1"), {}};
  ProviderConnectorContext context{.workspacePath = folder.path(), .selectedModel = "second"};
  const auto made = [&] { return localHarness(connection, context, "grok", folder.path()); };
  EXPECT_FALSE(made()) << "no model, no client";
  connection.models = {{"first", "first", "", false, {}}, {"second", "second", "", false, {}}};
  for (const auto& [chosen, taken] : {std::pair("second", "second"), {"gone", "first"}}) {
    context.selectedModel = chosen;
    const auto configuration = made();
    ASSERT_TRUE(configuration);
    EXPECT_EQ(configuration->processEnvironment.at("KEPT"), "as it was");
    EXPECT_THAT(TemporaryFolder::contentOf(folder / "vantrell/local-agent/grok/config.toml"),
                testing::HasSubstr(std::string("model = \"") + taken + "\"\n"));
  }
}

}  // namespace
}  // namespace vantrell::tests
