#include "platform/queues/output_sink.h"

#include <cerrno>
#include <climits>
#include <condition_variable>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/files/descriptor.h"
#include "platform/queues/dispatch.h"
#include "platform/terminal/terminal.h"

namespace vantrell {

/// Shared with the thread, which may be around for longer than the sink: in a write that waits,
/// where the system has no other.
struct OutputSink::Impl : std::enable_shared_from_this<Impl> {
  Impl(OutputSink* sink, MainQueue& queue, int number, std::function<bool()> isAllowed)
      : owner(sink),
        main(queue),
        own(terminal::openAgain(number, O_WRONLY)),
        mayWrite(std::move(isAllowed)) {
    if (!own) own = Descriptor(::fcntl(number, F_DUPFD_CLOEXEC, 0));
    struct stat kind{};
    isSocket = ::fstat(own.get(), &kind) == 0 && S_ISSOCK(kind.st_mode);
  }

  void work() {
    std::unique_lock lock(mutex);
    for (;;) {
      changed.wait(lock, [this] { return ending || !waiting.empty() || !waitingForEnd.empty(); });
      if (ending) return;
      if (waiting.empty()) {
        for (auto& each : std::exchange(waitingForEnd, {})) {
          tell([then = std::move(each)](OutputSink&) { then(); });
        }
        continue;
      }
      std::string piece = std::exchange(waiting, {});
      lock.unlock();
      const int failure = writeAll(piece);
      lock.lock();
      if (ending) return;
      unwritten -= piece.size();
      if (failure != 0) {
        broken = failure;
        unwritten = 0;
        waiting.clear();
        tell([](OutputSink& sink) {
          if (sink.onBroken) sink.onBroken();
        });
      }
      if (full && unwritten <= bound / 4) {
        full = false;
        tell([](OutputSink& sink) {
          if (sink.onFullChanged) sink.onFullChanged(false);
        });
      }
    }
  }

  /// With the mutex, and not when ending: the main queue may be gone then.
  void tell(std::function<void(OutputSink&)> what) {
    main.post([self = shared_from_this(), what = std::move(what)] {
      if (self->owner) what(*self->owner);
    });
  }

  /// In pieces that a pipe with any room takes whole. Returns 0 or the errno.
  int writeAll(std::string_view bytes) {
    while (!bytes.empty()) {
      pollfd ready{.fd = own.get(), .events = POLLOUT, .revents = 0};
      const bool isAllowed = !mayWrite || mayWrite();
      const int answer = ::poll(&ready, isAllowed ? 1 : 0, lookAgain);
      {
        const std::lock_guard lock(mutex);
        if (ending) return ECANCELED;
      }
      if (answer == 0 || (answer < 0 && errno == EINTR)) continue;
      const auto size = std::min<std::size_t>(bytes.size(), PIPE_BUF);
      const ssize_t count = isSocket
                                ? ::send(own.get(), bytes.data(), size, MSG_DONTWAIT | MSG_NOSIGNAL)
                                : ::write(own.get(), bytes.data(), size);
      if (count >= 0) {
        bytes.remove_prefix(static_cast<std::size_t>(count));
      } else if (errno != EINTR && errno != EAGAIN) {
        return errno;
      }
    }
    return 0;
  }

  static constexpr int lookAgain = 50;  // milliseconds

  OutputSink* owner;  // null once it is gone; the main queue's
  MainQueue& main;
  /// Of a terminal or a pipe an open file of its own: its writes do not wait, also where the user
  /// has stopped the output, or another writer takes the room.
  Descriptor own;
  bool isSocket = false;
  const std::function<bool()> mayWrite;
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::function<void()>> waitingForEnd;
  std::string waiting;
  std::size_t unwritten = 0;  // bytes, those that the thread is writing included
  bool full = false;
  bool ending = false;
  int broken = 0;  // errno
};

OutputSink::OutputSink(MainQueue& main, int descriptor, std::function<bool()> mayWrite)
    : impl_(std::make_shared<Impl>(this, main, descriptor, std::move(mayWrite))) {
  std::thread([impl = impl_] { impl->work(); }).detach();
}

OutputSink::~OutputSink() {
  impl_->owner = nullptr;
  {
    const std::lock_guard lock(impl_->mutex);
    impl_->ending = true;
  }
  impl_->changed.notify_all();
}

void OutputSink::write(std::string_view bytes) {
  if (bytes.empty()) return;
  bool isFullNow = false;
  {
    const std::lock_guard lock(impl_->mutex);
    if (impl_->broken != 0) return;
    impl_->waiting += bytes;
    impl_->unwritten += bytes.size();
    isFullNow = impl_->unwritten > bound && !std::exchange(impl_->full, true);
  }
  impl_->changed.notify_all();
  if (isFullNow && onFullChanged) onFullChanged(true);
}

void OutputSink::whenWritten(std::function<void()> then) {
  {
    const std::lock_guard lock(impl_->mutex);
    impl_->waitingForEnd.push_back(std::move(then));
  }
  impl_->changed.notify_all();
}

int OutputSink::error() const {
  const std::lock_guard lock(impl_->mutex);
  return impl_->broken;
}

}  // namespace vantrell
