// What each permission mode means with each provider, in the words that a person chooses by.
// Immutable; any thread.
#pragma once

#include <optional>
#include <string_view>

#include "records/values/agent_provider.h"
#include "records/values/task_modes.h"

namespace vantrell {

/// The sentence under the choice of a mode. Without a provider it speaks of Grok.
std::string_view detail(GrokPermissionMode mode, std::optional<AgentProvider> provider);

/// What a person is told and has to confirm before Full Access is turned on.
namespace FullAccessConfirmation {
inline constexpr std::string_view title = "Enable Full Access?";
inline constexpr std::string_view text =
    "The active provider will skip ordinary approval prompts. Shell commands run with your macOS "
    "account's access unless deny rules, hooks, or a configured sandbox block them.";
inline constexpr std::string_view cancel = "Cancel";
inline constexpr std::string_view enable = "Enable Full Access";
}  // namespace FullAccessConfirmation

}  // namespace vantrell
