// `vantrell login`: signs in to a runtime with the runtime's own flow, in this terminal.
#pragma once

#include "shell/terminal/command.h"

namespace vantrell::shell {

extern const Command loginCommand;

}  // namespace vantrell::shell
