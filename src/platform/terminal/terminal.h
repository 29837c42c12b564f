// The terminal that this program may run in. Any thread.
#pragma once

#include <memory>
#include <optional>
#include <string>

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
/// in the background nothing. Of a terminal that a RunLoop watches, its discardPending() does it.
void discardTypedAhead(int descriptor);

/// One line without its end; nullopt at the end of the input. Reads no byte after it. Blocks.
std::optional<std::string> readLine(int descriptor);

/// The same from a terminal, for a secret: nothing of it is shown. Backspace and Ctrl-U correct;
/// Ctrl-C and Ctrl-D give it up. The terminal is as before when this returns. Blocks.
std::optional<std::string> readHiddenLine(int descriptor);

/// All that standard input holds, up to its end. Blocks.
std::string readStandardInput();

/// The folder of this process's own program.
std::string programFolder();

}  // namespace vantrell::terminal
