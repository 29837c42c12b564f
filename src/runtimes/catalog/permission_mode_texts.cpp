#include "runtimes/catalog/permission_mode_texts.h"

#include <array>

namespace vantrell {

namespace {

/// In the order of GrokPermissionMode.
using Sentences = std::array<std::string_view, rawTexts(GrokPermissionMode{}).size()>;

constexpr std::string_view taskletSentence =
    "Tasklet runs outside this Mac. Its workflow permissions are managed in Tasklet; vantrell "
    "confirms the handoff and reports whether the webhook accepted it.";

/// In the order of AgentProvider.
constexpr std::array<Sentences, allAgentProviders.size()> sentences{{
    {"Grok asks before actions that are not already allowed.",
     "Grok's safety classifier approves routine actions and escalates others.",
     "Grok skips ordinary approval prompts. Deny rules, hooks, and any configured sandbox still "
     "apply."},
    {"Codex works inside the project and asks before it goes beyond it.",
     "Codex works inside the project; its own reviewer decides what goes beyond it and escalates "
     "the rest.",
     "Codex skips its approval prompts and its sandbox. Its own rules still apply."},
    {"Kimi uses manual mode and asks before tool actions.",
     "Kimi handles approvals and questions autonomously.",
     "Kimi uses YOLO mode for regular tool calls; sensitive actions and plan exits may still ask."},
    {"OpenCode applies its configured allow/deny rules and sends unresolved GLM tool actions here "
     "for approval.",
     "OpenCode applies its own permission rules and vantrell surfaces any action it still cannot "
     "decide.",
     "vantrell approves OpenCode tool prompts automatically. OpenCode deny rules still apply."},
    {"Claude Code uses its default permission checks and sends unresolved tool actions here for "
     "approval.",
     "Claude Code uses its native auto permission mode and escalates actions it cannot approve.",
     "Claude Code uses bypassPermissions. Explicit deny rules still apply."},
    {"The local agent asks before actions that are not already allowed. Model prompts and tool "
     "results stay on your chosen runtime.",
     "The local agent approves routine actions and escalates actions that still need a decision.",
     "The local agent skips ordinary approval prompts. Workspace boundaries and explicit deny "
     "rules still apply."},
    {taskletSentence, taskletSentence, taskletSentence},
}};

}  // namespace

std::string_view detail(GrokPermissionMode mode, std::optional<AgentProvider> provider) {
  const auto row = static_cast<std::size_t>(provider.value_or(AgentProvider::grok));
  return sentences[row][static_cast<std::size_t>(mode)];
}

}  // namespace vantrell
