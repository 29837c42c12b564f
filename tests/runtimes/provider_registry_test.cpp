#include "runtimes/catalog/provider_registry.h"

#include <gtest/gtest.h>

namespace vantrell {
namespace {

// The promise of the program: nothing that it can choose by itself is billed per use.
TEST(ProviderRegistry, NoProviderIsBilledPerUse) {
  ASSERT_EQ(ProviderRegistry::all().size(), allAgentProviders.size());
  for (const auto& descriptor : ProviderRegistry::all()) {
    EXPECT_NE(descriptor.billingMode, ProviderBillingMode::meteredAPI) << descriptor.label;
  }
}

TEST(ProviderRegistry, DescriptorComesBackFromItsJson) {
  for (const auto& descriptor : ProviderRegistry::all()) {
    std::string text;
    JsonWriter writer(text);
    writeJson(writer, descriptor, conversationJson);
    const auto json = json::parse(text);
    ASSERT_TRUE(json);
    EXPECT_EQ(decodeDescriptor(*json, conversationJson), descriptor) << text;
  }
  std::string text;
  JsonWriter writer(text);
  writeJson(writer, ProviderRegistry::descriptor(AgentProvider::local), conversationJson);
  EXPECT_EQ(text,
            R"({"id":"local","label":"Local Models","shortLabel":"Local",)"
            R"("systemImage":"desktopcomputer","category":"local",)"
            R"("executionLocation":"local_network","billingMode":"local_compute",)"
            R"("capabilities":{"chat":true,"tools":true,"images":false,"reasoningEffort":false,)"
            R"("usageReporting":false,"manualUsageReset":false,"resumableSessions":true,)"
            R"("backgroundExecution":false},)"
            R"("summary":"Ollama, LM Studio, or another OpenAI-compatible runtime without metered )"
            R"(API billing."})");
}

}  // namespace
}  // namespace vantrell
