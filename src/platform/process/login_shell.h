// What the user's login shell knows that this process does not. A program that is started from a
// menu gets no PATH of the user's, which shells set in their start files; so the shell is asked,
// once and in the background. Nothing but PATH is taken over: start files also set secrets.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/process/process.h"

namespace vantrell {

class ProgramRunner;

namespace loginShell {

struct Question {
  std::string shell;        // absolute path
  Environment environment;  // of the shell
  /// Start files may wait forever, for a network or for an answer on a terminal.
  std::chrono::milliseconds limit{3000};
};

/// This user's shell ($SHELL, else what the user database says), in this process's environment.
Question usersOwn();

/// Runs the shell as a login and interactive one, without a terminal and with no input, and gives
/// the absolute folders of its PATH on the main queue; none when it fails in any way. Main queue.
void readFolders(ProgramRunner& runner, const Question& question,
                 std::function<void(std::vector<std::string>)> completion);

/// The folders that were kept for this process, for code that searches or starts programs. Any
/// thread.
std::vector<std::string> keptFolders();
void keepFolders(std::vector<std::string> folders);

/// The absolute folders on the lines between the two that are the marker, each once: start files
/// print what they like around them. Any thread.
std::vector<std::string> foldersBetween(std::string_view marker, std::string_view output);

}  // namespace loginShell
}  // namespace vantrell
