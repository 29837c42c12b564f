// Runs git for one folder and waits for it: never on the main queue. What the program inherited
// cannot lead git to another repository, no hook, file system monitor or difference tool of the
// project runs, and git asks the user nothing: it has no terminal, and its standard input is empty.
// A command without a limit may take as long as it likes.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/process/process.h"

namespace vantrell {

struct GitOptions {
  /// Standard error is kept by itself; else it stands in the output, where it was written.
  bool errorsApart = false;
  /// git writes nothing that it can do without (the refreshed index above all), so that it never
  /// takes a lock that the user's own commands want. For commands that only look.
  bool isReadOnly = false;
  /// Bytes of output that are kept: the first ones. The rest is read and dropped.
  std::size_t keptOutput = std::size_t{64} << 20;
  /// From the start; then git is ended.
  std::optional<std::chrono::milliseconds> limit;
  /// Ends git when that is requested, from any thread.
  std::stop_token stop;
  /// On standard input, which then ends.
  std::optional<std::string> input;
  /// Configuration that counts more than the user's, the repository's included: name and value.
  std::vector<std::pair<std::string, std::string>> configuration;
  /// Set on top of gitEnvironment().
  Environment environment;
};

struct GitResult {
  std::string output;  // what the system said, when git could not be started
  std::string errors;  // the first megabyte; empty unless they were kept apart
  /// As a shell shows it; -1 when git could not be started, or was ended before its end.
  int status = -1;
  bool wasCut = false;     // there was more output than was kept
  bool hasRunOut = false;  // of time

  bool succeeded() const { return status == 0; }
  /// The output as text without white space at its ends, invalid UTF-8 repaired: for a line, or for
  /// the user.
  std::string text() const;
  /// The output of a command with -z, as it is: paths are bytes.
  std::vector<std::string> parts() const;
};

/// Runs "/usr/bin/git -C path arguments...". Any thread but the main queue's.
GitResult runGit(const std::string& path, std::vector<std::string> arguments,
                 GitOptions options = {});

/// This process's environment without what would lead git astray (GIT_DIR, GIT_INDEX_FILE,
/// GIT_EXTERNAL_DIFF, traces and the like): of GIT_* only what says who the user is and where the
/// configuration lies is left. The user's language stays, since texts of git are shown.
Environment gitEnvironment();

}  // namespace vantrell
