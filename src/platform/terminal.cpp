#include "platform/terminal.h"

#include <cerrno>
#include <csignal>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "platform/files.h"

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

void discardTypedAhead(int descriptor) {
  ::tcflush(descriptor, TCIFLUSH);
}

void ignoreBrokenPipes() {
  std::signal(SIGPIPE, SIG_IGN);
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
