// How the parts that find and start runtimes' programs are put together: for the whole program, and
// for a command that only looks at them.
#pragma once

#include "engine/providers/installed_runtimes.h"

namespace vantrell {

class UserDefaults;

using ExecutableChoice = std::function<std::optional<std::string>(AgentProvider)>;

/// The path that the front door names (`named` may be unset), else the one that the user has
/// stored: the one answer to which program is meant. The defaults must outlive it. Main queue.
ExecutableChoice executableChoice(ExecutableChoice named, const UserDefaults& defaults);

/// With the login shell's PATH and the desktop of this session.
RuntimeMeans runtimeMeans(std::shared_ptr<ProgramRunner> runner, BackgroundPool& pool,
                          ExecutableChoice choice);

}  // namespace vantrell
