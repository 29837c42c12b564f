#include "platform/terminal/terminal.h"

#include <cerrno>
#include <csignal>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "platform/files/files.h"

namespace vantrell::terminal {

bool isTerminal(int descriptor) {
  return ::isatty(descriptor) == 1;
}

std::optional<Size> size(int descriptor) {
  winsize window{};
  if (::ioctl(descriptor, TIOCGWINSZ, &window) != 0 || window.ws_col == 0 || window.ws_row == 0) {
    return std::nullopt;
  }
  return Size{window.ws_col, window.ws_row};
}

bool isInForeground(int descriptor) {
  const pid_t foreground = ::tcgetpgrp(descriptor);
  return foreground <= 0 || foreground == ::getpgrp();
}

void discardTypedAhead(int descriptor) {
  if (isInForeground(descriptor)) ::tcflush(descriptor, TCIFLUSH);
}

std::optional<std::string> readLine(int descriptor) {
  std::string line;
  char character = 0;
  for (;;) {
    const ssize_t count = ::read(descriptor, &character, 1);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return line.empty() ? std::nullopt : std::optional(line);
    if (character == '\n') return line;
    line.push_back(character);
  }
}

namespace {

/// A terminal that hands over each key by itself and shows none, while this lives. Keys that send
/// signals are keys like others: no end of the program leaves the terminal mute.
class HiddenKeys {
 public:
  explicit HiddenKeys(int descriptor) : descriptor_(descriptor) {
    if (::tcgetattr(descriptor_, &before_) != 0) return;
    termios hidden = before_;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL | ICANON | ISIG);
    hidden.c_cc[VMIN] = 1;
    hidden.c_cc[VTIME] = 0;
    isHidden_ = ::tcsetattr(descriptor_, TCSAFLUSH, &hidden) == 0;
  }
  ~HiddenKeys() {
    if (isHidden_) ::tcsetattr(descriptor_, TCSAFLUSH, &before_);
  }
  HiddenKeys(const HiddenKeys&) = delete;
  HiddenKeys& operator=(const HiddenKeys&) = delete;

  bool isHidden() const { return isHidden_; }

 private:
  const int descriptor_;
  termios before_{};
  bool isHidden_ = false;
};

}  // namespace

std::optional<std::string> readHiddenLine(int descriptor) {
  constexpr char ctrlC = 3, ctrlD = 4, ctrlH = 8, ctrlU = 21, erase = 127;
  const HiddenKeys keys(descriptor);
  if (!keys.isHidden()) return std::nullopt;
  std::string line;
  char key = 0;
  for (;;) {
    const ssize_t count = ::read(descriptor, &key, 1);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0 || key == ctrlC || key == ctrlD) return std::nullopt;
    if (key == '\n' || key == '\r') return line;
    if (key == ctrlU) {
      line.clear();
    } else if (key == ctrlH || key == erase) {
      if (!line.empty()) line.pop_back();
    } else {
      line.push_back(key);
    }
  }
}

std::string readStandardInput() {
  std::string all;
  char piece[64 << 10];
  for (;;) {
    const ssize_t count = ::read(STDIN_FILENO, piece, sizeof piece);
    if (count > 0) {
      all.append(piece, static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      return all;
    }
  }
}

std::string programFolder() {
  std::string path(4096, '\0');
  const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
  path.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  return files::parent(path);
}

}  // namespace vantrell::terminal
