// What a provider is told when it takes a task over from another one, so that it goes on and does
// not start again. Sessions are never carried across providers; this text is. A pure function.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "engine/core/plan_entry.h"
#include "records/values/agent_provider.h"
#include "records/values/transcript.h"

namespace vantrell::HandoffCapsule {

/// How every capsule begins, and what stands behind the prompt in it.
inline constexpr std::string_view opening =
    "Continue this coding task after an automatic provider handoff from ";
inline constexpr std::string_view afterPrompt = "\n\nACTIVE PLAN\n";

struct Contents {
  AgentProvider from;
  AgentProvider to;
  std::string_view originalPrompt;  // as assembled for the turn
  const Transcript& entries;
  const std::vector<PlanEntry>& plan;
  std::string_view workspacePath;
  std::string_view repositoryState;  // empty: no snapshot is available
  std::string_view projectContext;   // empty: none was configured
};

/// The conversation part is bounded to its last 40 entries, thoughts left out, and of those to the
/// last 24,000 characters.
std::string build(const Contents& contents);

}  // namespace vantrell::HandoffCapsule
