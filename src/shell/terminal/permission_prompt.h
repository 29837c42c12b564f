// An agent's question as lines of a terminal. Pure functions.
#pragma once

#include <string>
#include <vector>

#include "shell/terminal/terminal_style.h"
#include "views/approval_card.h"

namespace vantrell::shell {

using views::optionOfKind;
using views::readAnswer;

/// Title, detail (bounded) and the numbered options.
std::vector<std::string> permissionLines(const PermissionRequest& request,
                                         const TerminalStyle& style);

/// What is shown before the cursor where the answer is typed.
std::string answerPrompt(const PermissionRequest& request);

}  // namespace vantrell::shell
