// Takes the commands that other processes hand over to this one, which owns the state. Main queue.
#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <string>

#include "app/control/handed_command.h"
#include "platform/files/descriptor.h"

namespace vantrell {

class MainQueue;

/// A command of another process, which waits for its end.
class IncomingCommand {
 public:
  using SignalHandler = std::function<void(int signal)>;

  virtual ~IncomingCommand() = default;

  HandedCommand command;
  /// The caller's streams, closed with this object.
  Descriptor input, output, error;
  /// The calling process.
  pid_t caller = 0;

  /// Hears the signals that the caller gets, and SIGHUP where it has gone, while the answer lives.
  /// Where nobody listens, a signal ends the command for its caller at once, as it would end a
  /// process; what the command has begun goes on here.
  virtual std::shared_ptr<void> watchSignals(SignalHandler handler) = 0;
  /// Tells the caller the exit status. The first call counts.
  virtual void end(int status) = 0;
};

class CommandServer {
 public:
  using Handler = std::function<void(std::shared_ptr<IncomingCommand>)>;

  /// Answers at controlSocketOf() of this process. The error is a sentence.
  static std::expected<std::unique_ptr<CommandServer>, std::string> listen(MainQueue& main,
                                                                           Handler handler);
  virtual ~CommandServer() = default;
};

}  // namespace vantrell
