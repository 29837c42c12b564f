#include "runtimes/catalog/provider_registry.h"

#include <vector>

#include "records/stores/json_fields.h"

namespace vantrell {

static constexpr auto fieldsOf(const ProviderCapabilities*) {
  using R = ProviderCapabilities;
  return fields(field("chat", &R::chat), field("tools", &R::tools), field("images", &R::images),
                field("reasoningEffort", &R::reasoningEffort),
                field("usageReporting", &R::usageReporting),
                field("manualUsageReset", &R::manualUsageReset),
                field("resumableSessions", &R::resumableSessions),
                field("backgroundExecution", &R::backgroundExecution));
}

static constexpr auto fieldsOf(const ProviderDescriptor*) {
  using R = ProviderDescriptor;
  return fields(field("id", &R::id), field("label", &R::label), field("shortLabel", &R::shortLabel),
                field("systemImage", &R::systemImage), field("category", &R::category),
                field("executionLocation", &R::executionLocation),
                field("billingMode", &R::billingMode), field("capabilities", &R::capabilities),
                field("summary", &R::summary));
}

void writeJson(JsonWriter& writer, const ProviderDescriptor& descriptor, const JsonPolicy& policy) {
  writeJson<ProviderDescriptor>(writer, descriptor, policy);
}

std::expected<ProviderDescriptor, DecodeError> decodeDescriptor(const Json& json,
                                                                const JsonPolicy& policy) {
  ProviderDescriptor descriptor;
  JsonReading reading{policy};
  if (!readJson(json, descriptor, reading)) return std::unexpected(std::move(reading.error));
  return descriptor;
}

namespace {

using Category = ProviderCategory;
using Location = ProviderExecutionLocation;
using Billing = ProviderBillingMode;

struct Row {
  ProviderDescriptor descriptor;
  std::string_view setupHint;
};

/// What the five runtimes of a subscription have in common.
constexpr ProviderCapabilities agent{.chat = true,
                                     .tools = true,
                                     .reasoningEffort = true,
                                     .usageReporting = true,
                                     .resumableSessions = true};

ProviderCapabilities agentWithUsageReset() {
  auto capabilities = agent;
  capabilities.manualUsageReset = true;
  return capabilities;
}

const std::vector<Row>& rows() {
  static const std::vector<Row> table{
      {{AgentProvider::grok, "Grok", std::string(vantrell::shortLabel(AgentProvider::grok)),
        "xmark", Category::subscription, Location::thisMac, Billing::subscription, agent,
        "Grok Build using the SuperGrok account signed in on this Mac."},
       "Install the Grok CLI, then sign in with your SuperGrok account."},
      {{AgentProvider::codex, "ChatGPT / Codex",
        std::string(vantrell::shortLabel(AgentProvider::codex)), "sparkles", Category::subscription,
        Location::thisMac, Billing::subscription, agentWithUsageReset(),
        "Codex using the ChatGPT account signed in on this Mac."},
       "Install Codex (or the ChatGPT Mac app), then sign in with your ChatGPT account."},
      {{AgentProvider::kimi, "Kimi Code", std::string(vantrell::shortLabel(AgentProvider::kimi)),
        "moon.stars.fill", Category::subscription, Location::thisMac, Billing::subscription, agent,
        "Kimi Code ACP using the membership signed in on this Mac."},
       "Install Kimi Code, then sign in with your Kimi membership."},
      {{AgentProvider::glm, "GLM Coding Plan",
        std::string(vantrell::shortLabel(AgentProvider::glm)), "cube.transparent.fill",
        Category::subscription, Location::thisMac, Billing::subscription, agent,
        "A guarded Z.AI Coding Plan model through OpenCode ACP."},
       "Install OpenCode, configure Z.AI Coding Plan, and choose a zai-coding-plan/GLM model in "
       "Settings."},
      {{AgentProvider::claude, "Claude", std::string(vantrell::shortLabel(AgentProvider::claude)),
        "circle.hexagongrid.fill", Category::subscription, Location::thisMac, Billing::subscription,
        agent, "Claude Code using the Claude account signed in on this Mac."},
       "Install Claude Code, then sign in with your Claude subscription."},
      {{AgentProvider::local,
        "Local Models",
        std::string(vantrell::shortLabel(AgentProvider::local)),
        "desktopcomputer",
        Category::local,
        Location::localNetwork,
        Billing::localCompute,
        {.chat = true, .tools = true, .resumableSessions = true},
        "Ollama, LM Studio, or another OpenAI-compatible runtime without metered API billing."},
       "Start Ollama or LM Studio, load a model, and install Grok Build as the local ACP tool "
       "harness."},
      {{AgentProvider::tasklet,
        "Tasklet",
        std::string(vantrell::shortLabel(AgentProvider::tasklet)),
        "cloud.fill",
        Category::cloud,
        Location::cloud,
        Billing::externalPlan,
        {.chat = true, .backgroundExecution = true},
        "Dispatch work to a Tasklet workflow through its inbound webhook."},
       "Add an HTTPS inbound webhook for Tasklet in Settings."},
  };
  return table;
}

}  // namespace

std::span<const ProviderDescriptor> ProviderRegistry::all() {
  static const std::vector<ProviderDescriptor> descriptors = [] {
    std::vector<ProviderDescriptor> list;
    for (const auto& row : rows()) list.push_back(row.descriptor);
    return list;
  }();
  return descriptors;
}

const ProviderDescriptor& ProviderRegistry::descriptor(AgentProvider provider) {
  return all()[static_cast<std::size_t>(provider)];
}

std::string_view ProviderRegistry::setupHint(AgentProvider provider) {
  return rows()[static_cast<std::size_t>(provider)].setupHint;
}

std::vector<AgentProvider> ProviderRegistry::routingOrder(ProviderRoutingMode mode,
                                                          std::optional<AgentProvider> active) {
  if (!allowsAutomaticHandoff(mode)) return {firstChoice(mode)};
  std::vector<AgentProvider> order;
  for (const auto& each : all()) {
    if (each.category == ProviderCategory::subscription) order.push_back(each.id);
  }
  order.insert(mode == ProviderRoutingMode::localFirst ? order.begin() : order.end(),
               AgentProvider::local);
  const auto place = active ? std::ranges::find(order, *active) : order.end();
  if (place != order.end()) std::rotate(order.begin(), place, place + 1);
  return order;
}

}  // namespace vantrell
