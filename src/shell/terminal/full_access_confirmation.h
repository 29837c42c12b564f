// Raising the mode to Full Access takes a person at the machine who types the words for it; no
// option alone does it, and nothing that is piped in. Blocks; before the main loop runs.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "shell/terminal/command.h"

namespace vantrell::shell {

/// The person at the terminal, or none.
struct Person {
  bool isPresent = false;
  std::function<void(std::string_view)> show;
  /// The next typed line, absent at the end of the input. What was typed before the call does not
  /// count.
  std::function<std::optional<std::string>()> readLine;

  /// Standard input and standard error of this process, when both are a terminal.
  static Person atTheTerminal();
};

/// Shows what Full Access means and reads the answer. The error tells why it stays off.
std::expected<void, UsageError> confirmFullAccess(const Person& person);

}  // namespace vantrell::shell
