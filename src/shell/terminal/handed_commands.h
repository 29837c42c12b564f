// Carries out the commands that other processes hand over to this one, which owns the state: each
// with its caller's streams, folder and signals. Main queue.
#pragma once

#include <expected>
#include <functional>
#include <list>
#include <memory>
#include <string>

#include "app/control/command_server.h"
#include "shell/terminal/command_context.h"

namespace vantrell::shell {

class HandedCommands final : public OtherCommands {
 public:
  /// The app must outlive it. The error is a sentence.
  static std::expected<std::unique_ptr<HandedCommands>, std::string> listen(MainQueue& main,
                                                                            VantrellApp& app);

  bool areOver() const override { return commands_.empty(); }
  void refuseNew() override { refusesNew_ = true; }
  void signal(int number) override;

 private:
  struct Handed {
    std::shared_ptr<IncomingCommand> incoming;
    std::unique_ptr<CommandContext> context{};
    int signal = 0;       // which has ended it
    Timer momentToEnd{};  // after which its caller waits no longer
  };
  HandedCommands(MainQueue& main, VantrellApp& app) : main_(main), app_(app) {}
  void begin(std::shared_ptr<IncomingCommand> incoming);
  void ended(std::list<Handed>::iterator handed, int status);

  MainQueue& main_;
  VantrellApp& app_;
  std::list<Handed> commands_;
  bool refusesNew_ = false;
  std::unique_ptr<CommandServer> server_;
};

}  // namespace vantrell::shell
