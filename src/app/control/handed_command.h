// A command of one process that another one carries out: what is handed over, and the names of the
// messages between the two. The command's three standard streams go along as descriptors.
#pragma once

#include <chrono>
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
inline constexpr char killed = 'K';   // to the caller: the signal that ended it
inline constexpr char refused = 'R';  // to the caller: why, a sentence for the user
}  // namespace controlMessage

/// The part of an environment that counts for a command: how its output looks and where programs
/// and pages are found, never what an agent would be started with.
Environment environmentToHandOver(const Environment& all);

/// The owner-only file beside the lock in which the owner of the state says where its socket is:
/// the runtime folder of another session, or of a timer, may be another one.
std::string controlRecord(const std::string& supportFolder);
/// The socket that `owner` has recorded there; nullopt where it takes no commands.
std::optional<std::string> controlSocketOf(pid_t owner, const std::string& supportFolder);
/// How long the socket may be missing after its folder was removed.
inline constexpr std::chrono::seconds controlSocketCheck{2};

/// How a command ended.
struct HandedCommandEnd {
  int status = 0;
  int signal = 0;  // which has ended it, as it would a process; 0: none
  bool operator==(const HandedCommandEnd&) const = default;
};

/// Lets the process that owns the state carry the command out, with the standard streams of this
/// one; nullopt where that process takes no commands. Hears meanwhile the signals that this process
/// does not ignore, and blocks. `complain` gets what goes wrong between the two.
std::optional<HandedCommandEnd> handOver(pid_t owner, const std::string& supportFolder,
                                         const HandedCommand& command,
                                         const std::function<void(std::string_view)>& complain);

}  // namespace vantrell
