// A program that takes over the terminal of this one for a while, as a shell's command does: it has
// the same standard input, output and error, and the keyboard is its own.
#pragma once

#include <expected>
#include <string>
#include <vector>

#include "platform/process/process.h"

namespace vantrell {

/// Runs the program to its end and blocks meanwhile. Ctrl-C and the like are the program's affair;
/// a request to end this one (SIGTERM, SIGHUP) is passed on to it. Any thread, one program at a
/// time, while no run loop watches signals.
std::expected<ExitStatus, ProcessError> runInForeground(const std::string& executable,
                                                        const std::vector<std::string>& arguments,
                                                        const Environment& environment);

}  // namespace vantrell
