// What is said when all conversations are exported or imported. Pure functions, any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "records/values/chat_thread.h"

namespace vantrell::views {

/// "3 conversations in 1 project".
std::string countsOf(std::size_t threads, std::size_t workspaces);
/// Asks whether these may be replaced by those of `source`; empty where there is nothing to
/// replace.
std::string importQuestion(const std::vector<Workspace>& present, std::string_view source);
/// Of imported projects whose folders are not on this machine; empty for none.
std::string missingFoldersWarning(std::size_t count);

}  // namespace vantrell::views
