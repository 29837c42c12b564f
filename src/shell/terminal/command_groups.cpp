#include "shell/terminal/command_groups.h"

namespace vantrell::shell {

std::vector<Command> allCommands() {
  std::vector<Command> all;
  for (const auto group :
       {runCommands(), compareCommands(), mediaCommands(), providerCommands(), modelCommands(),
        taskListCommands(), taskCommands(), safetyCommands(), projectCommands(), settingsCommands(),
         serveCommands(), gatewayCommands(), fleetCommands(), remoteCommands(), connectCommands(), sessionCommands(),
         automationCommands(), doctorCommands(), updateCommands()}) {
    all.insert(all.end(), group.begin(), group.end());
  }
  return all;
}

}  // namespace vantrell::shell
