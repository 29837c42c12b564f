// Files, folders and pictures that a person gives to an agent. Looks at the file system; any
// thread.
#pragma once

#include <expected>
#include <optional>
#include <string>
#include <string_view>

#include "records/values/conversation_records.h"

namespace vantrell::views {

/// What is attached for this absolute path. The error is a sentence for the user.
std::expected<ChatAttachment, std::string> attachmentFor(std::string path);

/// The type of a picture with this name; nullopt where it names none. Pure.
std::optional<std::string_view> pictureTypeOf(std::string_view path);

}  // namespace vantrell::views
