// Every command of the program, group by group, and the pages without a command.
#pragma once

#include <span>

#include "shell/terminal/command.h"

namespace vantrell::shell {

std::span<const Command> runCommands();       // run, queue, retry, branch
std::span<const Command> compareCommands();   // compare
std::span<const Command> mediaCommands();     // imagine, artifacts
std::span<const Command> providerCommands();  // providers, login, usage
std::span<const Command> modelCommands();     // models, effort, route, handoff
std::span<const Command> taskListCommands();  // activity, status, tasks, search
/// show, export, say, new, fork, rename, move, pin, archive, delete
std::span<const Command> taskCommands();
std::span<const Command> safetyCommands();      // diff, review, checkpoint, isolate
std::span<const Command> projectCommands();     // projects, context, hooks
std::span<const Command> settingsCommands();    // settings
std::span<const Command> serveCommands();       // serve
std::span<const Command> gatewayCommands();     // gateway
std::span<const Command> automationCommands();  // automations
std::span<const Command> fleetCommands();       // fleet
std::span<const Command> sessionCommands();     // sessions
std::span<const Command> doctorCommands();      // doctor
std::span<const Command> updateCommands();      // update
std::span<const Command> remoteCommands();      // remote
std::span<const Command> connectCommands();     // connect

/// In the order in which help lists them.
std::vector<Command> allCommands();

/// What `vantrell` shows by itself: what it is, which agents it found, and how to begin. Where it
/// finds none it goes on to the walk-through.
void welcome(CommandContext& context);
/// A whole task with the practice agent, in a folder of its own.
void practiceTour(CommandContext& context);

}  // namespace vantrell::shell
