// An agent's question as lines, and a person's line as an answer. Pure functions.
#pragma once

#include <expected>
#include <string>
#include <vector>

#include "runtimes/wire/agent_client.h"
#include "shell/terminal/terminal_style.h"

namespace vantrell::shell {

/// Title, detail (bounded) and the numbered options.
std::vector<std::string> permissionLines(const PermissionRequest& request,
                                         const TerminalStyle& style);

/// What stands before the cursor where the answer is typed.
std::string answerPrompt(const PermissionRequest& request);

/// The option that the line names by its number or its id (should a text be both, the number, which
/// is what the person sees). The error says what would have been an answer.
std::expected<const PermissionOption*, std::string> readAnswer(const PermissionRequest& request,
                                                               std::string_view line);

/// The first option of this kind, or null.
const PermissionOption* optionOfKind(const PermissionRequest& request, std::string_view kind);

}  // namespace vantrell::shell
