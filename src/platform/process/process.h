// Child processes. A child inherits nothing but what is given: its environment is exactly the one
// in the options, every other descriptor is closed, signals have their default actions, and it
// leads a process group of its own.
//
// A child never outlives this program, nor does what it has started: all of it ends when the
// Process is stopped or destroyed, when the child exits (unless told otherwise), and when this
// program ends in any way. src/platform/supervisor/main.cpp does that, and says where it cannot.
#pragma once

#include <chrono>
#include <cstdint>
#include <expected>
#include <memory>
#include <string>

#include "platform/process/process_options.h"
#include "platform/queues/dispatch.h"

namespace vantrell {

class Process {
 public:
  using Handlers = ProcessHandlers;

  /// Starts the child. Fails when it cannot be executed (the errors of execve and chdir included).
  static std::expected<std::shared_ptr<Process>, ProcessError> start(ProcessOptions options,
                                                                     SerialQueue queue,
                                                                     Handlers handlers);
  /// The last reference to it stops the child without grace, unless it was stopped before.
  virtual ~Process() = default;
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  // Any thread, none of these blocks.

  /// Sends bytes to the child's standard input, in order of the calls. What the pipe does not take
  /// at once waits in memory. Ignored once the input is closed.
  virtual void write(std::string bytes) = 0;
  /// Bytes handed to write() that the child has not taken yet.
  virtual std::size_t unsentBytes() const = 0;
  /// End of file for the child, after everything written so far.
  virtual void closeInput() = 0;
  /// Stops and resumes reading from the child's output and error; while paused the child blocks
  /// when its pipe is full. What is in the pipes at the exit is delivered all the same.
  virtual void pauseReading() = 0;
  virtual void resumeReading() = 0;
  /// SIGTERM for the whole group, and SIGKILL for what is left of it after `grace`. onExit still
  /// comes, and a group that may outlive its leader still wants a stop().
  virtual void terminate(std::chrono::milliseconds grace = defaultGrace) = 0;
  /// Closes the input, drops what the child still writes, and terminates. No handler is called from
  /// now on (one that is running on the queue finishes). With patience, the child first gets what
  /// was written, the end of its input and that much time to end by itself.
  virtual void stop(std::chrono::milliseconds grace = defaultGrace,
                    std::chrono::milliseconds patience = std::chrono::milliseconds::zero()) = 0;
  virtual bool isRunning() const = 0;
  virtual std::int64_t processID() const = 0;

  static constexpr std::chrono::milliseconds defaultGrace{2000};

  /// Waits until no child is left, those of stopped and destroyed objects included, or the limit
  /// ran out (then returns false). For the end of a program.
  static bool waitForAll(std::chrono::milliseconds limit);

 protected:
  Process() = default;
};

}  // namespace vantrell
