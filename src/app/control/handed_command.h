// A command of one process that another one carries out: what is handed over, and the names of the
// messages between the two. The command's three standard streams go along as descriptors.
#pragma once

#include <expected>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "platform/process/process_options.h"

namespace vantrell {

struct HandedCommand {
  /// Of the program that hands it over; another version's commands are refused.
  std::string version;
  std::string folder;  // absolute
  std::vector<std::string> arguments;
  Environment environment;

  /// Any bytes but NUL, which neither an argument nor a path can hold. The version comes first and
  /// stays there in every version of the program.
  std::string encoded() const;
  static std::optional<HandedCommand> decoded(std::string_view bytes);
  static std::string versionIn(std::string_view bytes);
  /// Larger ones are refused; Linux allows no more for arguments and environment together.
  static constexpr std::size_t maxBytes = 8 << 20;
};

/// Messages are a letter and a number or text.
namespace controlMessage {
inline constexpr char command = 'C';  // to the owner, with the encoded command and three streams
inline constexpr char signal = 'S';   // to the owner: the number of a signal
inline constexpr char ended = 'E';    // to the caller: the exit status
inline constexpr char refused = 'R';  // to the caller: why, a sentence for the user
}  // namespace controlMessage

/// The part of an environment that counts for a command: how its output looks and where programs
/// and pages are found, never what an agent would be started with.
Environment environmentToHandOver(const Environment& all);

/// The socket on which the process answers. The error is a sentence.
std::expected<std::string, std::string> controlSocketOf(pid_t owner);

/// Lets the process that owns the state carry the command out, with the standard streams of this
/// one, and answers its exit status; nullopt where that process takes no commands. Hears this
/// process's signals meanwhile, and blocks. `complain` gets what goes wrong between the two.
std::optional<int> handOver(pid_t owner, const HandedCommand& command,
                            const std::function<void(std::string_view)>& complain);

}  // namespace vantrell
