#include "runtimes/catalog/permission_mode_texts.h"

#include "runtimes/catalog/provider_table.h"

namespace vantrell {

std::string_view detail(GrokPermissionMode mode, std::optional<AgentProvider> provider) {
  const ProviderFacts& facts = providerFacts(provider.value_or(AgentProvider::grok));
  return facts.permissionTexts[static_cast<std::size_t>(mode)];
}

}  // namespace vantrell
