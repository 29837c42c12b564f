#include "views/labels.h"

#include <gmock/gmock.h>

namespace vantrell::views {
namespace {

using ::testing::ElementsAre;
using Kind = ConnectionState::Kind;

TEST(Labels, EveryChoiceHasItsWords) {
  const auto permissions = {label(GrokPermissionMode::ask), label(GrokPermissionMode::auto_),
                            label(GrokPermissionMode::fullAccess)};
  EXPECT_THAT(permissions, ElementsAre("Ask", "Auto", "Full access"));
  EXPECT_EQ(label(TaskWorkflowMode::review), "Review");
  EXPECT_EQ(label(RunRecordStatus::waitingApproval), "Needs approval");
  EXPECT_EQ(label(RunRecordStatus::interrupted), "Interrupted");
}

TEST(Labels, RoutesAreOfferedAsFarAsTheirProviderIsThere) {
  const auto options =
      routingOptions([](AgentProvider each) { return each == AgentProvider::kimi; });
  std::vector<std::string> shown;
  for (const auto& each : options) {
    shown.push_back(std::string(each.id) + "=" + std::string(each.label) +
                    (each.available ? "+" : ""));
  }
  EXPECT_THAT(shown, ElementsAre("automatic=Auto+", "local_first=Local first+", "grok=Grok",
                                 "codex=Codex", "kimi=Kimi+", "glm=GLM", "claude=Claude",
                                 "local=Local", "tasklet=Tasklet"));
  EXPECT_TRUE(options[7].detail.contains("Ollama"));
}

TEST(Labels, ProgressOfTheMediaGeneratorReplacesItsState) {
  EXPECT_EQ(imagineLabel(Kind::working, ""), "Agent is working");
  EXPECT_EQ(imagineLabel(Kind::working, "Drawing a cat"), "Drawing a cat");
  EXPECT_EQ(connectionLabel(Kind::failed), "Needs attention");
  EXPECT_EQ(statusWord(Kind::idle), "idle");
}

TEST(Labels, WithoutAProviderAtWorkTheRouteIsNamed) {
  EXPECT_EQ(activeProviderLabel(AgentProvider::codex, ProviderRoutingMode::automatic),
            "ChatGPT / Codex");
  EXPECT_EQ(activeProviderLabel({}, ProviderRoutingMode::localFirst), "Local first");
}

}  // namespace
}  // namespace vantrell::views
