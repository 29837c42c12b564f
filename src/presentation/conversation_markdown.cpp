#include "presentation/conversation_markdown.h"

#include <fmt/format.h>

#include "platform/text/text.h"

namespace vantrell::ConversationMarkdown {

namespace {

std::string_view roleOf(const ChatEntry& entry) {
  switch (entry.kind) {
    case ChatEntryKind::user: return "You";
    case ChatEntryKind::assistant:
      return entry.provider ? shortLabel(*entry.provider) : "Assistant";
    default: return entry.title ? std::string_view(*entry.title) : "Status";
  }
}

std::string bodyOf(const ChatEntry& entry) {
  std::string body(text::trimmed(entry.text));
  std::string_view between = body.empty() ? "" : "\n\n";
  for (const auto& attachment : entry.attachments) {
    body +=
        fmt::format("{}- Attachment: `{}`", std::exchange(between, "\n"), attachment.displayName);
  }
  return body;
}

}  // namespace

std::string render(std::string_view title, std::optional<std::string_view> workspaceName,
                   const Transcript& entries) {
  std::string document = fmt::format("# {}", title);
  if (workspaceName && !workspaceName->empty()) {
    document += fmt::format("\n\n_Workspace: {}_", *workspaceName);
  }
  for (const ChatEntry& entry : entries) {
    if (entry.kind == ChatEntryKind::thought || entry.kind == ChatEntryKind::tool) continue;
    const std::string body = bodyOf(entry);
    if (!body.empty()) document += fmt::format("\n\n## {}\n\n{}", roleOf(entry), body);
  }
  return document + "\n";
}

}  // namespace vantrell::ConversationMarkdown
