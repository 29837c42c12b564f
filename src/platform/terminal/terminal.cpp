#include "platform/terminal/terminal.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include "platform/files/descriptor.h"
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

namespace {

/// What the system says of a process; nullopt where that cannot be told.
struct ProcessState {
  char state = 0;
  long parent = 0, group = 0, session = 0, terminal = 0, foreground = 0;
};

std::optional<ProcessState> stateOf(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string content;
  std::getline(file, content);
  // "PID (name) state parent group session terminal foreground-group ...": a name may hold
  // anything.
  const auto end = content.rfind(')');
  if (end == std::string::npos) return std::nullopt;
  std::istringstream fields(content.substr(end + 1));
  ProcessState now;
  fields >> now.state >> now.parent >> now.group >> now.session >> now.terminal >> now.foreground;
  return fields ? std::optional(now) : std::nullopt;
}

}  // namespace

bool isProcessInForeground(pid_t process) {
  const auto now = stateOf(process);
  return !now || now->foreground < 0 || now->foreground == now->group;
}

bool isProcessStopped(pid_t process) {
  const auto now = stateOf(process);
  return now && (now->state == 'T' || now->state == 't');
}

bool isOwn(int descriptor) {
  return ::tcgetpgrp(descriptor) > 0;
}

void leaveOwn() {
  if (::getsid(0) == ::getpid()) return;
  const Descriptor own(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (own) ::ioctl(own.get(), TIOCNOTTY);
}

struct SavedMode::Impl {
  int descriptor;
  termios mode{};
};

SavedMode::SavedMode(int descriptor) : impl_(std::make_unique<Impl>(descriptor)) {
  if (::tcgetattr(descriptor, &impl_->mode) != 0) impl_.reset();
}

SavedMode::~SavedMode() {
  if (!impl_ || !isInForeground(impl_->descriptor)) return;
  termios now{};
  if (::tcgetattr(impl_->descriptor, &now) != 0 || now.c_lflag == impl_->mode.c_lflag) return;
  ::tcsetattr(impl_->descriptor, TCSANOW, &impl_->mode);
}

void discardTypedAhead(int descriptor) {
  if (isInForeground(descriptor)) ::tcflush(descriptor, TCIFLUSH);
}

Descriptor openAgain(int descriptor, int access) {
  struct stat kind{};
  const bool isPipe = ::fstat(descriptor, &kind) == 0 && S_ISFIFO(kind.st_mode);
  if (!isPipe && !isTerminal(descriptor)) return Descriptor();
  const auto path = "/proc/self/fd/" + std::to_string(descriptor);
  return Descriptor(::open(path.c_str(), access | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

/// And forgets what was typed. TCSAFLUSH would wait for output that the user may have stopped.
static bool setMode(int descriptor, const termios& mode) {
  const bool isSet = ::tcsetattr(descriptor, TCSANOW, &mode) == 0;
  ::tcflush(descriptor, TCIFLUSH);
  return isSet;
}

struct HiddenTyping::Mode {
  termios flags{};
};

HiddenTyping::HiddenTyping(int descriptor) : descriptor_(descriptor) {
  auto before = std::make_unique<Mode>();
  if (::tcgetattr(descriptor_, &before->flags) != 0) return;
  termios hidden = before->flags;
  hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL);
  if (setMode(descriptor_, hidden)) before_ = std::move(before);
}

HiddenTyping::~HiddenTyping() {
  if (before_) setMode(descriptor_, before_->flags);
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
