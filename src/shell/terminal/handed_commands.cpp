#include "shell/terminal/handed_commands.h"

#include "platform/queues/dispatch.h"
#include "platform/terminal/terminal.h"
#include "shell/terminal/begin_command.h"

namespace vantrell::shell {

constexpr std::chrono::milliseconds momentToEnd{300};

std::expected<std::unique_ptr<HandedCommands>, std::string> HandedCommands::listen(
    MainQueue& main, VantrellApp& app) {
  auto handed = std::unique_ptr<HandedCommands>(new HandedCommands(main, app));
  auto server = CommandServer::listen(
      main, UserFolders{}.orOwn().support,
      [self = handed.get()](auto incoming) { self->begin(std::move(incoming)); });
  if (!server) return std::unexpected(std::move(server.error()));
  handed->server_ = *std::move(server);
  return handed;
}

void HandedCommands::begin(std::shared_ptr<IncomingCommand> incoming) {
  if (refusesNew_) {
    return incoming->refuse("The Vantrell that is running is about to end. Try again.");
  }
  const auto handed = commands_.insert(commands_.end(), {.incoming = incoming});
  Caller caller{
      .input = incoming->input.get(),
      .streams = {.output = incoming->output.get(),
                  .error = incoming->error.get(),
                  // As a process that was stopped writes nothing.
                  .mayWrite =
                      [process = incoming->caller] {
                        return !terminal::isProcessStopped(process);
                      }},
      .folder = incoming->command.folder,
      .environment = incoming->command.environment,
      .watchSignals =
          [incoming](std::function<void(int)> handler) {
            return incoming->watchSignals(std::move(handler));
          },
      .isInForeground = [process =
                             incoming->caller] { return terminal::isProcessInForeground(process); },
      .app = &app_};
  handed->context =
      beginCommand(main_, std::move(caller), readArguments(incoming->command.arguments),
                   [this, handed](int status) { ended(handed, status); });
  incoming->onUnwatchedSignal = [this, handed](int number) {
    handed->signal = number;
    handed->context->abandon(128 + number);
    // Alone it would be gone already; here its work in the background has to be waited for.
    handed->momentToEnd = main_.after(
        momentToEnd, [incoming = handed->incoming, number] { incoming->endBySignal(number); });
  };
}

void HandedCommands::ended(std::list<Handed>::iterator handed, int status) {
  handed->incoming->onUnwatchedSignal = nullptr;
  handed->signal != 0 ? handed->incoming->endBySignal(handed->signal)
                      : handed->incoming->end(status);
  // The context is in the middle of its last step.
  main_.post([over = std::make_shared<Handed>(std::move(*handed))] {});
  commands_.erase(handed);
  if (commands_.empty() && whenOver) std::exchange(whenOver, nullptr)();
}

void HandedCommands::signal(int number) {
  refuseNew();
  for (auto each = commands_.begin(); each != commands_.end();) {
    const auto incoming = (each++)->incoming;
    incoming->hear(number);
  }
}

}  // namespace vantrell::shell
