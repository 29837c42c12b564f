// `vantrell providers`: which runtimes are there, and what to do about the others.
#pragma once

#include "shell/terminal/command.h"

namespace vantrell::shell {

extern const Command providersCommand;

}  // namespace vantrell::shell
