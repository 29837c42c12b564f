// What `vantrell` says by itself: what it is, which runtimes it found, and how to begin.
#pragma once

#include "platform/process/process.h"

namespace vantrell::shell {

/// Answers the exit status. Where no runtime is found it goes on to the walk-through.
int welcome(const Environment& environment);

}  // namespace vantrell::shell
