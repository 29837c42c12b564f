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
  virtual std::shared_ptr<void> watchSignals(SignalHandler handler) = 0;
  /// The same while no such watch lives.
  SignalHandler onUnwatchedSignal;
  /// As if the caller had got the signal.
  virtual void hear(int signal) = 0;
  /// Tells the caller the exit status, or the signal that has ended the command, or why nothing was
  /// done. The first call counts.
  virtual void end(int status) = 0;
  virtual void endBySignal(int number) = 0;
  virtual void refuse(std::string_view why) = 0;
};

class CommandServer {
 public:
  using Handler = std::function<void(std::shared_ptr<IncomingCommand>)>;

  /// Listens in the first folder where it can, records that in the support folder, and does so
  /// again where the folder goes, as at a log-out. The error is a sentence.
  static std::expected<std::unique_ptr<CommandServer>, std::string> listen(
      MainQueue& main, std::string supportFolder, Handler handler);
  virtual ~CommandServer() = default;
};

}  // namespace vantrell
