#include "shell/terminal/command_groups.h"

namespace vantrell::shell {

std::vector<const Command*> allCommands() {
  std::vector<const Command*> all;
  for (const auto group :
       {runCommands(), compareCommands(), mediaCommands(), providerCommands(), modelCommands(),
        routeCommands(), taskListCommands(), taskShowCommands(), taskEditCommands(), diffCommands(),
        safetyCommands(), projectCommands(), settingsCommands()}) {
    for (const Command& command : group) all.push_back(&command);
  }
  return all;
}

}  // namespace vantrell::shell
