// How the words of the user become the prompt of a turn: attachments, then what kind of work is
// asked for, then what every provider is told about the project. Pure functions.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "records/values/conversation_records.h"
#include "records/values/task_modes.h"

namespace vantrell {

namespace ChatAttachmentPrompt {
/// The text and one line for each attachment; without any, the text as it is.
std::string compose(std::string_view text, const std::vector<ChatAttachment>& attachments);

struct Parsed {
  std::string_view request;
  std::vector<std::string_view> paths;
};
/// The opposite; text that compose() did not make is all request.
Parsed parse(std::string_view prompt);
}  // namespace ChatAttachmentPrompt

/// The composed text with the instructions of the workflow mode in front.
std::string preparedPrompt(TaskWorkflowMode mode, std::string_view composed);

/// All layers. An empty project context adds nothing.
std::string assemblePrompt(std::string_view text, const std::vector<ChatAttachment>& attachments,
                           TaskWorkflowMode mode, std::string_view projectContext);

/// The composed text in an assembled prompt: what the user wrote, as a runtime that plays a session
/// back cannot tell it from what stood round it. Absent for text that was not assembled here.
std::optional<std::string_view> composedTextOf(std::string_view assembledPrompt);

}  // namespace vantrell
