// The whole tree of conversations as one JSON document, out of the program and into it: for
// backups, and for moving to another machine. Blocks; the calling thread is the main thread.
#pragma once

#include <optional>
#include <string>

#include "app/vantrell_app.h"
#include "shell/terminal/command.h"

namespace vantrell::shell {

/// Writes the stored tree to the file (replaced in one step, owner-only) and says so, or without
/// one to standard output. Changes nothing, and may run beside the program. Answers the exit
/// status; errors are told.
int exportConversations(const VantrellOptions& options, const std::optional<std::string>& file);

/// Replaces the stored tree by the document in the file ("-": standard input), and says where the
/// replaced one was kept. Asks first, as `confirmed` does, where there is something to replace. A
/// document that does not decode changes nothing.
int importConversations(const VantrellOptions& options, const std::string& file,
                        const CommandArguments& arguments);

}  // namespace vantrell::shell
