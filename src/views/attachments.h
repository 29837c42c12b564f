// Files, folders and pictures that a person gives to an agent. Looks at the file system; any
// thread.
#pragma once

#include <expected>
#include <string>

#include "records/values/conversation_records.h"

namespace vantrell::views {

/// What is attached for this absolute path. The error is a sentence for the user.
std::expected<ChatAttachment, std::string> attachmentFor(std::string path);

}  // namespace vantrell::views
