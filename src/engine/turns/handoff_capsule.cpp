#include "engine/turns/handoff_capsule.h"

#include <fmt/format.h>

#include "platform/text/text.h"
#include "project/task_safety_error.h"
#include "runtimes/catalog/provider_registry.h"

namespace vantrell::HandoffCapsule {

namespace {

constexpr std::size_t keptEntries = 40;
constexpr std::size_t keptCharacters = 24'000;  // user-perceived

std::string_view heading(ChatEntryKind kind) {
  switch (kind) {
    case ChatEntryKind::user: return "USER";
    case ChatEntryKind::assistant: return "ASSISTANT";
    case ChatEntryKind::tool: return "TOOL";
    case ChatEntryKind::system: return "SYSTEM";
    case ChatEntryKind::thought: break;
  }
  return "";
}

std::string describe(const ChatEntry& entry) {
  std::string line(heading(entry.kind));
  if (entry.provider) line += fmt::format(" [{}]", shortLabel(*entry.provider));
  if (entry.title) line += " " + *entry.title;
  return line + ": " + entry.text;
}

std::string conversation(const Transcript& entries) {
  std::vector<std::string> lines;
  for (std::size_t i = entries.size(); i > 0 && lines.size() < keptEntries; --i) {
    const ChatEntry& entry = entries[i - 1];
    const bool isForUser =
        entry.kind == ChatEntryKind::thought ||
        (entry.kind == ChatEntryKind::system && entry.text.starts_with(missingCheckpointText));
    if (!isForUser) lines.push_back(describe(entry));
  }
  std::ranges::reverse(lines);
  return std::string(text::lastCharacters(text::joined(lines, "\n\n"), keptCharacters));
}

std::string describe(const std::vector<PlanEntry>& plan) {
  std::vector<std::string> lines;
  for (const auto& entry : plan)
    lines.push_back(fmt::format("- [{}] {}", entry.status, entry.content));
  return text::joined(lines, "\n");
}

std::string_view orSentence(std::string_view text, std::string_view sentence) {
  return text.empty() ? sentence : text;
}

}  // namespace

std::string build(const Contents& contents) {
  const std::string plan = describe(contents.plan);
  const std::string visible = conversation(contents.entries);
  return fmt::format(
      "{}{} to {}.\n\n"
      "Do not restart completed work. Inspect the current working tree because its files are the "
      "source of truth. Preserve the user's approval mode and ask for approval when your runtime "
      "requires it.\n\n"
      "ORIGINAL USER REQUEST\n{}"
      "{}{}\n\n"
      "RECENT VISIBLE CONVERSATION\n{}\n\n"
      "WORKSPACE\n{}\n\n"
      "REPOSITORY SNAPSHOT\n{}\n\n"
      "PROJECT CONTEXT\n{}",
      opening, shortLabel(contents.from), shortLabel(contents.to), contents.originalPrompt,
      afterPrompt, orSentence(plan, "No active plan was reported."),
      orSentence(visible, "No visible conversation was available."), contents.workspacePath,
      orSentence(contents.repositoryState,
                 "No Git snapshot is available; inspect the workspace directly."),
      orSentence(contents.projectContext, "No project-level context was configured."));
}

}  // namespace vantrell::HandoffCapsule
