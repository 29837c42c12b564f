// Carries out the commands that other processes hand over to this one, which owns the state: each
// with its caller's streams, folder and signals. Main queue.
#pragma once

#include <expected>
#include <functional>
#include <list>
#include <memory>
#include <string>

#include "app/control/command_server.h"

namespace vantrell {
class VantrellApp;
}

namespace vantrell::shell {

class CommandContext;

class HandedCommands {
 public:
  /// The app must outlive it. The error is a sentence.
  static std::expected<std::unique_ptr<HandedCommands>, std::string> listen(MainQueue& main,
                                                                            VantrellApp& app);
  ~HandedCommands();

  bool areOver() const { return commands_.empty(); }
  /// Called when the last one has ended. It may destroy this object.
  std::function<void()> whenOver;
  /// Gives each of them a signal, as if it had been sent to its caller. New ones are refused from
  /// now on.
  void signal(int number);

 private:
  struct Handed {
    std::shared_ptr<IncomingCommand> incoming;
    std::unique_ptr<CommandContext> context;
  };
  HandedCommands(MainQueue& main, VantrellApp& app) : main_(main), app_(app) {}
  void begin(std::shared_ptr<IncomingCommand> incoming);
  void ended(std::list<Handed>::iterator handed, int status);

  MainQueue& main_;
  VantrellApp& app_;
  std::list<Handed> commands_;
  bool isEnding_ = false;
  std::unique_ptr<CommandServer> server_;
};

}  // namespace vantrell::shell
