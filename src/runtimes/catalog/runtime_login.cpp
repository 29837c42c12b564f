#include "runtimes/catalog/runtime_login.h"

#include <algorithm>

namespace vantrell {

const RuntimeLoginFlow* loginFlow(AgentProvider provider) {
  static const RuntimeLoginFlow flows[] = {
      {.provider = AgentProvider::grok,
       .arguments = {"login"},
       .failure = "Grok login failed.",
       .saysWhy = true},
      {.provider = AgentProvider::codex,
       .arguments = {"login"},
       .failure = "Codex login did not complete."},
      {.provider = AgentProvider::kimi,
       .arguments = {"login"},
       .failure = "Kimi login did not complete."},
      {.provider = AgentProvider::glm,
       .arguments = {"auth", "login", "--provider", "zai-coding-plan"},
       .wantsTerminal = true,
       .failure = "OpenCode login did not complete."},
      {.provider = AgentProvider::claude,
       .arguments = {"auth", "login"},
       .wantsTerminal = true,
       .failure = "Claude login did not complete."},
  };
  const auto* found = std::ranges::find(flows, provider, &RuntimeLoginFlow::provider);
  return found == std::end(flows) ? nullptr : found;
}

std::string shellQuoted(std::string_view text) {
  std::string quoted = "'";
  for (const char each : text) {
    if (each == '\'') {
      quoted += R"('\'')";
    } else {
      quoted += each;
    }
  }
  return quoted + "'";
}

std::string loginCommandLine(const RuntimeLoginFlow& flow, std::string_view executable) {
  std::string command = shellQuoted(executable);
  // The arguments are plain words.
  for (const auto& argument : flow.arguments) command += " " + argument;
  return command;
}

}  // namespace vantrell
