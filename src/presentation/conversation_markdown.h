// A conversation as a Markdown document, for copying and sharing. Pure, any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "records/values/conversation_records.h"
#include "records/values/transcript.h"

namespace vantrell::ConversationMarkdown {

/// What was said, with who said it; thoughts and tool calls are left out. Ends with a line feed.
std::string render(std::string_view title, std::optional<std::string_view> workspaceName,
                   const Transcript& entries);

}  // namespace vantrell::ConversationMarkdown
