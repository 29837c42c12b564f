// Begins what a command line asks for, for this process or for another one. Main queue.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>

#include "shell/terminal/command_context.h"
#include "shell/terminal/command_line.h"

namespace vantrell::shell {

/// Arguments without the program's own name.
std::expected<Invocation, UsageError> readArguments(std::span<const std::string> arguments);
/// Whether the process that owns the state may carry it out for this one.
bool canBeHandedOver(const Invocation& invocation);

/// Begins it. `ended` is called once, later on the main queue; the context must live until then.
std::unique_ptr<CommandContext> beginCommand(MainQueue& main, Caller caller,
                                             std::expected<Invocation, UsageError> invocation,
                                             std::function<void(int status)> ended);

}  // namespace vantrell::shell
