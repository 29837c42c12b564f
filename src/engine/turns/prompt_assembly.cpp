#include "engine/turns/prompt_assembly.h"

#include <fmt/format.h>

#include "engine/turns/handoff_capsule.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {

constexpr std::string_view attachmentHeading = "\n\nAttached context:\n";
constexpr std::string_view attachmentMark = "- @";

constexpr std::string_view style =
    "RESPONSE STYLE\nWrite for easy scanning in readable Markdown. Lead with the direct answer. "
    "Use short paragraphs, descriptive headings only when useful, and bullets or numbered steps "
    "for multiple points. Put commands and code in fenced blocks. Never return a long wall of "
    "prose.";

constexpr std::string_view requestHeading = "\n\nUSER REQUEST:\n";

constexpr std::string_view planInstructions =
    "WORKFLOW MODE: PLAN\nInvestigate the project and produce a concrete, reviewable "
    "implementation plan. Do not edit files or run mutating commands. Call out assumptions, "
    "risks, affected files, and verification. Wait for approval before implementation.";

constexpr std::string_view reviewInstructions =
    "WORKFLOW MODE: REVIEW\nReview the current project state and uncommitted changes for "
    "correctness, regressions, security issues, and missing tests. Lead with specific findings and "
    "evidence. Do not modify files unless the user explicitly asks for fixes.";

}  // namespace

std::string ChatAttachmentPrompt::compose(std::string_view text,
                                          const std::vector<ChatAttachment>& attachments) {
  std::string composed(text);
  if (attachments.empty()) return composed;
  std::vector<std::string> lines;
  for (const auto& attachment : attachments) {
    lines.push_back(std::string(attachmentMark) + attachment.path);
  }
  return composed.append(attachmentHeading).append(text::joined(lines, "\n"));
}

ChatAttachmentPrompt::Parsed ChatAttachmentPrompt::parse(std::string_view prompt) {
  const std::size_t heading = prompt.rfind(attachmentHeading);
  if (heading == std::string_view::npos) return {prompt, {}};
  Parsed parsed{prompt.substr(0, heading), {}};
  for (const auto line : text::split(prompt.substr(heading + attachmentHeading.size()), '\n')) {
    const auto trimmed = text::trimmed(line);
    if (!trimmed.starts_with(attachmentMark)) return {prompt, {}};
    parsed.paths.push_back(trimmed.substr(attachmentMark.size()));
  }
  return parsed;
}

std::string preparedPrompt(TaskWorkflowMode mode, std::string_view composed) {
  const std::string request = fmt::format("{}{}{}", style, requestHeading, composed);
  switch (mode) {
    case TaskWorkflowMode::build: return request;
    case TaskWorkflowMode::plan: return fmt::format("{}\n\n{}", planInstructions, request);
    case TaskWorkflowMode::review: return fmt::format("{}\n\n{}", reviewInstructions, request);
  }
  return request;
}

std::string assemblePrompt(std::string_view text, const std::vector<ChatAttachment>& attachments,
                           TaskWorkflowMode mode, std::string_view projectContext) {
  std::string prompt = preparedPrompt(mode, ChatAttachmentPrompt::compose(text, attachments));
  if (projectContext.empty()) return prompt;
  return fmt::format("{}\n\n{}", projectContext, prompt);
}

std::optional<std::string_view> composedTextOf(std::string_view assembledPrompt) {
  const std::size_t start = assembledPrompt.find(style);
  if (start == std::string_view::npos) return std::nullopt;
  std::string_view rest = assembledPrompt.substr(start + style.size());
  if (!rest.starts_with(requestHeading)) return std::nullopt;
  rest.remove_prefix(requestHeading.size());
  // In a hand-off the prompt is followed by what the new provider has to know.
  if (assembledPrompt.starts_with(HandoffCapsule::opening)) {
    rest = rest.substr(0, rest.find(HandoffCapsule::afterPrompt));
  }
  return rest;
}

}  // namespace vantrell
