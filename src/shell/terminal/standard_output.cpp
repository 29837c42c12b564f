#include "shell/terminal/standard_output.h"

#include <cerrno>
#include <fmt/format.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "shell/terminal/command.h"
#include "shell/terminal/plain_words.h"

namespace vantrell::shell {

namespace {
constexpr std::size_t enoughToWrite = 1 << 16;  // bytes
}

void StandardOutput::write(std::string_view text) {
  if (isClosed()) return;
  waiting_ += text;
  if (waiting_.size() >= enoughToWrite) drain();
}

void StandardOutput::drain() {
  std::string_view rest = waiting_;
  while (!rest.empty() && !isClosed()) {
    const ssize_t count = ::write(STDOUT_FILENO, rest.data(), rest.size());
    if (count >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      error_ = errno;
    }
  }
  waiting_.clear();
}

int StandardOutput::finish(int status) {
  drain();
  const auto why = whyOutputFailed(error_);
  if (why.empty()) return status;
  complain(why);
  return exitStatus::failed;
}

std::string whyOutputFailed(int error) {
  struct stat kind{};
  // A terminal that was closed answers EIO.
  const bool hasGone = error == EPIPE || (error == EIO && ::fstat(STDOUT_FILENO, &kind) == 0 &&
                                          S_ISCHR(kind.st_mode));
  if (error == 0 || hasGone) return "";
  return fmt::format("The output could not be written: {}.",
                     std::generic_category().message(error));
}

}  // namespace vantrell::shell
