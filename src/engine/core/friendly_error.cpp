#include "engine/core/friendly_error.h"

#include "platform/text/text.h"

namespace vantrell {

std::string friendlyError(std::string_view message, AgentProvider provider) {
  if (provider == AgentProvider::local) {
    return "The local runtime could not start. Confirm Ollama or LM Studio is running, the "
           "selected model is loaded, and refresh Local Models in Settings.";
  }
  if (provider == AgentProvider::tasklet) {
    return "Tasklet could not accept the handoff. Verify the HTTPS inbound webhook in Settings and "
           "confirm the workflow is enabled.";
  }
  const std::string words = text::lowercased(message);
  const bool isSignIn =
      words.contains("auth") || words.contains("login") || words.contains("unauthorized");
  if (!isSignIn) return std::string(message);
  switch (provider) {
    case AgentProvider::kimi:
      return "Kimi needs you to sign in again. Use Log in with Kimi in Settings; vantrell removes "
             "pay-per-use API keys from the runtime.";
    case AgentProvider::codex:
      return "Codex needs you to sign in again. Use Log in with ChatGPT in Settings; vantrell does "
             "not use an API key.";
    case AgentProvider::glm:
      return "GLM needs you to sign in again. Use Set up Z.AI Coding Plan in Settings; vantrell "
             "removes pay-per-use API keys from the runtime.";
    case AgentProvider::claude:
      return "Claude needs you to sign in again. Use Log in with Claude in Settings; vantrell does "
             "not use an API key.";
    default:
      return "Grok needs you to sign in again. Use the Log in button; your SuperGrok subscription "
             "stays in the CLI.";
  }
}

}  // namespace vantrell
