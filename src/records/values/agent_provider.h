// The runtimes that a turn can go to. The order of the cases is the order of every provider list of
// the program, and the raw text is what stored conversations and wires carry.
#pragma once

#include <array>
#include <string_view>

#include "records/values/raw_text.h"

namespace vantrell {

enum class AgentProvider { grok, codex, kimi, glm, claude, local, tasklet };

constexpr auto rawTexts(AgentProvider) {
  return std::to_array<std::string_view>(
      {"grok", "codex", "kimi", "glm", "claude", "local", "tasklet"});
}

/// Its name for tight places and status lines.
constexpr std::string_view shortLabel(AgentProvider provider) {
  constexpr auto labels = std::to_array<std::string_view>(
      {"Grok", "Codex", "Kimi", "GLM", "Claude", "Local", "Tasklet"});
  return labels[static_cast<std::size_t>(provider)];
}

inline constexpr std::array allAgentProviders = {
    AgentProvider::grok,   AgentProvider::codex, AgentProvider::kimi,   AgentProvider::glm,
    AgentProvider::claude, AgentProvider::local, AgentProvider::tasklet};

}  // namespace vantrell
