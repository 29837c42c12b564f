// vantrell: the entry point in the terminal.
#include <fmt/format.h>
#include <unistd.h>

#include "app/control/handed_command.h"
#include "app/user_state.h"
#include "platform/files/files.h"
#include "platform/process/own_process.h"
#include "platform/process/process.h"
#include "platform/queues/run_loop.h"
#include "platform/terminal/terminal.h"
#include "records/values/application.h"
#include "shell/terminal/begin_command.h"
#include "shell/terminal/handed_commands.h"
#include "shell/terminal/new_version.h"

using namespace vantrell;
using namespace vantrell::shell;

namespace {

/// For what the agents started to end.
constexpr std::chrono::milliseconds endOfChildren{5000}, whenAbandoned{200};

/// How the command ended where the process that owns the state has carried it out.
std::optional<HandedCommandEnd> handOverTo(const UserFolders& folders,
                                           const std::vector<std::string>& arguments,
                                           const Caller& caller) {
  const auto owner = folders.owner();
  if (!owner) return std::nullopt;
  return handOver(*owner, folders.support,
                  {.version = std::string(applicationVersion),
                   .folder = caller.folder,
                   .arguments = arguments,
                   .environment = environmentToHandOver(caller.environment)},
                  [](std::string_view text) { fmt::print(stderr, "vantrell: {}\n", text); });
}

}  // namespace

int main(int count, char** words) {
  if (const auto prepared = prepareOwnProcess(); !prepared) {
    fmt::print(stderr, "vantrell: {}\n", prepared.error());
    return exitStatus::failed;
  }
  const std::vector<std::string> arguments(words + 1, words + count);
  auto invocation = readArguments(arguments);

  RunLoop loop;
  Caller caller{.input = STDIN_FILENO,
                .streams = {.output = STDOUT_FILENO, .error = STDERR_FILENO},
                .folder = files::standardized("."),
                .environment = currentEnvironment(),
                .watchSignals = [&loop, heard = signalsOfUser()](
                                    std::function<void(int)> handler) -> std::shared_ptr<void> {
                  return loop.watchSignals(heard, std::move(handler));
                }};
  caller.acceptCommands = [&loop](VantrellApp& app) { return HandedCommands::listen(loop, app); };
  if (invocation && canBeHandedOver(*invocation)) {
    if (const auto end = handOverTo(UserFolders{}.orOwn(), arguments, caller)) {
      if (end->signal != 0) endBySignal(end->signal);
      return end->status;
    }
  }
  int status = exitStatus::failed;
  auto context = beginCommand(loop, std::move(caller), std::move(invocation), [&](int ended) {
    status = ended;
    loop.quit();
  });
  loop.run();
  Process::waitForAll(context->wasAbandoned ? whenAbandoned : endOfChildren);
  if (const auto newVersion = context->newVersion; newVersion != CommandContext::NewVersion::none) {
    const auto environment = context->caller.environment;
    context.reset();
    return startNewVersion(newVersion == CommandContext::NewVersion::goesOn, arguments, environment,
                           status);
  }
  return status;
}
