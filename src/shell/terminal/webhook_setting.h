// The setting of Tasklet's webhook, whose address is a secret: it is typed unseen or comes from
// standard input, never from the command line, where other programs and the shell's history would
// have it. Blocks; main thread.
#pragma once

#include <expected>
#include <optional>
#include <string>

#include "app/user_state.h"

namespace vantrell::shell {

/// "set", "not set", or what else there is to say without saying the address. The error is the
/// secret store's sentence.
std::expected<std::string, std::string> webhookState(const UserFolders& folders);

/// Asks for the address and stores it. Both answer the exit status.
int setWebhook();
int forgetWebhook();

}  // namespace vantrell::shell
