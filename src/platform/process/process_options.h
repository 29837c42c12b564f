// What a child process is started with, and what is reported of it.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/process/supervision.h"

namespace vantrell {

/// Variable name to value.
using Environment = std::map<std::string, std::string, std::less<>>;

/// A copy of this process's own environment.
Environment currentEnvironment();

struct ProcessOptions {
  enum class Input { pipe, null };
  enum class Output { pipe, null };

  std::string executable;              // absolute path
  std::vector<std::string> arguments;  // without the executable itself
  Environment environment;             // complete
  std::string workingFolder;           // empty: this process's own
  Input standardInput = Input::pipe;
  Output standardOutput = Output::pipe;
  Output standardError = Output::pipe;
  /// Standard error goes where standard output goes, in the order of the writes.
  bool mergeErrorIntoOutput = false;
  /// What is left of the group when its leader exits is killed before the exit is reported.
  /// Otherwise it lives on until stop(), and its output is delivered until its end.
  bool endGroupWithLeader = true;
  /// Processes that leave the group live on, also after this program: for programs of the user's
  /// desktop.
  bool mayDetach = false;
  /// Begins a session of its own, without a terminal: what asks questions there, or wants to be in
  /// its foreground, cannot take the user's.
  bool ownSession = false;
};

/// How a process ended: by exit (status) or by a signal.
struct ExitStatus {
  int status = 0;  // exit status, meaningful when signal is 0
  int signal = 0;  // number of the signal that killed it, or 0
  /// One number for both, as a shell shows it: the status, or 128 plus the signal.
  int code() const { return signal == 0 ? status : 128 + signal; }
};

struct ProcessError {
  using Step = supervision::Step;
  Step step = Step::prepare;
  int error = 0;            // errno
  std::string description;  // what the system said
};

/// All are called on the queue given to Process::start(), in order. Unset ones are skipped.
struct ProcessHandlers {
  /// A chunk, never empty. Reading goes on only as fast as these return: a slow handler holds the
  /// child back, it does not fill memory.
  std::function<void(std::string_view bytes)> onOutput;
  std::function<void(std::string_view bytes)> onError;
  /// The child closed its input or died with bytes unsent; at most once. EPIPE mostly.
  std::function<void(ProcessError)> onWriteError;
  /// Exactly once, after every byte that was written before the exit has been delivered. A
  /// grandchild that holds the pipes open delays nothing. Not called after stop(). The last call,
  /// and the handlers are released, unless the group may outlive its leader: then output may
  /// follow, and they are held until its end or stop().
  std::function<void(ExitStatus)> onExit;
};

}  // namespace vantrell
