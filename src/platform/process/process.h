// Child processes. A child inherits nothing but what is given: its environment is exactly the one
// in the options, every other descriptor is closed, signals have their default actions, and it
// leads a process group of its own.
//
// A child never outlives this program: its group ends when the Process is stopped or destroyed,
// when its leader exits (unless told otherwise), and, by a guard process, when this program dies
// without a word.
#pragma once

#include <chrono>
#include <cstdint>
#include <expected>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/queues/dispatch.h"

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
  /// What failed: making pipes and the like, entering the working folder, executing the file, or
  /// writing to the child.
  enum class Step { prepare, enterFolder, execute, write };
  Step step = Step::prepare;
  int error = 0;            // errno
  std::string description;  // what the system said
};

class Process {
 public:
  /// All are called on the queue given to start(), in order. Unset ones are skipped.
  struct Handlers {
    /// A chunk, never empty. Reading goes on only as fast as these return: a slow handler holds the
    /// child back, it does not fill memory.
    std::function<void(std::string_view bytes)> onOutput;
    std::function<void(std::string_view bytes)> onError;
    /// The child closed its input or died with bytes unsent; at most once. EPIPE mostly.
    std::function<void(ProcessError)> onWriteError;
    /// Exactly once, after every byte that was written before the exit has been delivered. A
    /// grandchild that holds the pipes open delays nothing. Not called after stop(). The last call,
    /// and the handlers are let go of, unless the group may outlive its leader: then output may
    /// follow, and they are held until its end or stop().
    std::function<void(ExitStatus)> onExit;
  };

  /// Starts the child. Fails when it cannot be executed (the errors of execve and chdir included).
  static std::expected<std::shared_ptr<Process>, ProcessError> start(ProcessOptions options,
                                                                     SerialQueue queue,
                                                                     Handlers handlers);
  /// stop() without grace, unless it was stopped before.
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  // Any thread, none of these blocks.

  /// Sends bytes to the child's standard input, in order of the calls. What the pipe does not take
  /// at once waits in memory. Ignored once the input is closed.
  void write(std::string bytes);
  /// Bytes handed to write() that the child has not taken yet.
  std::size_t unsentBytes() const;
  /// End of file for the child, behind everything written so far.
  void closeInput();
  /// Stops and resumes reading from the child's output and error; while paused the child blocks
  /// when its pipe is full. What is in the pipes at the exit is delivered all the same.
  void pauseReading();
  void resumeReading();
  /// SIGTERM for the whole group, and SIGKILL for what is left of it after `grace`. onExit still
  /// comes, and a group that may outlive its leader still wants a stop().
  void terminate(std::chrono::milliseconds grace = defaultGrace);
  /// Closes the input, drops what the child still writes, and terminates. No handler is called from
  /// now on (one that is running on the queue finishes). With patience, the child first gets what
  /// was written, the end of its input and that much time to end by itself.
  void stop(std::chrono::milliseconds grace = defaultGrace,
            std::chrono::milliseconds patience = std::chrono::milliseconds::zero());
  bool isRunning() const;
  std::int64_t processID() const;

  static constexpr std::chrono::milliseconds defaultGrace{2000};

  /// Waits until no child is left, those of stopped and destroyed objects included, or the limit
  /// ran out (then answers false). For the end of a program.
  static bool waitForAll(std::chrono::milliseconds limit);

  struct Impl;

 private:
  explicit Process(std::shared_ptr<Impl> impl);
  std::shared_ptr<Impl> impl_;
};

}  // namespace vantrell
