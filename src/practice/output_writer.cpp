#include "practice/output_writer.h"

#include <cerrno>
#include <poll.h>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace vantrell::practice {
namespace {

/// False when the descriptor takes no more.
bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    auto count = ::write(descriptor, bytes.data(), bytes.size());
    if (count >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN) {  // the other side made the pipe non-blocking for both
      pollfd ready{.fd = descriptor, .events = POLLOUT, .revents = 0};
      ::poll(&ready, 1, -1);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace

OutputWriter::OutputWriter(MainQueue& main, BackgroundPool& pool)
    : main_(main), queue_(pool, "practice.output") {}

void OutputWriter::write(int descriptor, std::string bytes, Work whenWritten) {
  queue_.post(
      [this, descriptor, bytes = std::move(bytes), whenWritten = std::move(whenWritten)]() mutable {
        bool written = writeAll(descriptor, bytes);
        if (whenWritten) main_.post(std::move(whenWritten));
        if (written || descriptor != STDOUT_FILENO) return;
        main_.post([this] {
          if (onBroken) onBroken();
        });
      });
}

}  // namespace vantrell::practice
