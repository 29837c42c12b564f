// The terminal that this program may run in. Any thread.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>

#include "platform/files/descriptor.h"

namespace vantrell::terminal {

bool isTerminal(int descriptor);

struct Size {
  int columns = 0;
  int rows = 0;
};
/// nullopt when the descriptor is not a terminal, or one that does not know its size.
std::optional<Size> size(int descriptor);

/// Whether what is typed there is for this process: a job in the background is stopped when it
/// reads its terminal or flushes it. Also true of what is not the terminal of this process.
bool isInForeground(int descriptor);

/// The same for another process, whose terminal this one reads. True where that cannot be told.
bool isProcessInForeground(pid_t process);

/// Whether it was stopped, as by Ctrl-Z.
bool isProcessStopped(pid_t process);

/// The one that this process belongs to, whose keys send it signals.
bool isOwn(int descriptor);
/// Belongs to no terminal any more, so that it is neither stopped nor ended with one; Ctrl-C there
/// is still heard. Does nothing for the process that leads the session.
void leaveOwn();

/// Puts the mode of a terminal back when it is destroyed, after another process may have changed
/// it.
class SavedMode {
 public:
  explicit SavedMode(int descriptor);
  ~SavedMode();
  SavedMode(const SavedMode&) = delete;
  SavedMode& operator=(const SavedMode&) = delete;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// Forgets what has been typed and not read yet, so that keys pressed earlier answer no question;
/// in the background nothing. Of a terminal that a LineReader reads, its discardPending() does it.
void discardTypedAhead(int descriptor);

/// An open file of our own for the same terminal or pipe (`access` as for open()), whose reads or
/// writes do not block, without changing the mode of the one that other programs share. Not valid
/// where the descriptor is neither, where that is not permitted, as after a change of the user, and
/// for a pipe whose other end is gone.
Descriptor openAgain(int descriptor, int access);

/// While it lives, the terminal shows nothing of what is typed, for a secret. What was typed before
/// is forgotten. Changes nothing where the descriptor is no terminal.
class HiddenTyping {
 public:
  explicit HiddenTyping(int descriptor);
  ~HiddenTyping();
  HiddenTyping(const HiddenTyping&) = delete;
  HiddenTyping& operator=(const HiddenTyping&) = delete;

 private:
  struct Mode;
  const int descriptor_;
  std::unique_ptr<Mode> before_;  // null: nothing was changed
};

/// All that standard input holds, up to its end. Blocks.
std::string readStandardInput();

/// The folder of this process's own program.
std::string programFolder();

}  // namespace vantrell::terminal
