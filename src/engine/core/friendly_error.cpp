#include "engine/core/friendly_error.h"

#include "platform/text/text.h"
#include "runtimes/catalog/provider_table.h"

namespace vantrell {

std::string friendlyError(std::string_view message, AgentProvider provider) {
  const ProviderFacts& facts = providerFacts(provider);
  if (!facts.failureAdvice.empty()) return std::string(facts.failureAdvice);
  const std::string words = text::lowercased(message);
  const bool isSignIn =
      words.contains("auth") || words.contains("login") || words.contains("unauthorized");
  return std::string(isSignIn ? facts.signInAdvice : message);
}

}  // namespace vantrell
