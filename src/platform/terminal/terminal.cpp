#include "platform/terminal/terminal.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
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

Descriptor openAgain(int descriptor, int access) {
  if (!isTerminal(descriptor)) return Descriptor();
  const auto path = "/proc/self/fd/" + std::to_string(descriptor);
  return Descriptor(::open(path.c_str(), access | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

struct HiddenTyping::Mode {
  termios flags{};
};

HiddenTyping::HiddenTyping(int descriptor) : descriptor_(descriptor) {
  auto before = std::make_unique<Mode>();
  if (::tcgetattr(descriptor_, &before->flags) != 0) return;
  termios hidden = before->flags;
  hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL);
  if (::tcsetattr(descriptor_, TCSAFLUSH, &hidden) == 0) before_ = std::move(before);
}

HiddenTyping::~HiddenTyping() {
  if (before_) ::tcsetattr(descriptor_, TCSAFLUSH, &before_->flags);
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
