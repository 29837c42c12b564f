#include "platform/queues/output_sink.h"

#include <cerrno>
#include <climits>
#include <condition_variable>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/files/descriptor.h"
#include "platform/queues/dispatch.h"
#include "platform/terminal/terminal.h"

namespace vantrell {

struct OutputSink::Impl {
  explicit Impl(int number)
      : own(terminal::openAgain(number, O_WRONLY)), descriptor(own ? own.get() : number) {}

  void work() {
    std::unique_lock lock(mutex);
    for (;;) {
      changed.wait(lock, [this] { return ending || !waiting.empty() || !waitingForEnd.empty(); });
      if (ending) return;
      if (waiting.empty()) {
        for (auto& each : std::exchange(waitingForEnd, {})) whenWritten(std::move(each));
        continue;
      }
      std::string piece = std::exchange(waiting, {});
      lock.unlock();
      const int failure = writeAll(piece);
      lock.lock();
      unwritten -= piece.size();
      if (failure != 0 && !ending) {
        broken = failure;
        unwritten = 0;
        waiting.clear();
        if (whenBroken) whenBroken();
      }
      if (full && unwritten <= bound / 4) {
        full = false;
        whenRoomAgain();
      }
    }
  }

  /// In pieces that a pipe with any room takes whole, so that the thread is never stuck in write().
  /// Returns 0 or the errno.
  int writeAll(std::string_view bytes) {
    while (!bytes.empty()) {
      pollfd ready{.fd = descriptor, .events = POLLOUT, .revents = 0};
      const int answer = ::poll(&ready, 1, lookAtEnding);
      {
        const std::lock_guard lock(mutex);
        if (ending) return ECANCELED;
      }
      if (answer == 0 || (answer < 0 && errno == EINTR)) continue;
      const ssize_t count =
          ::write(descriptor, bytes.data(), std::min<std::size_t>(bytes.size(), PIPE_BUF));
      if (count >= 0) {
        bytes.remove_prefix(static_cast<std::size_t>(count));
      } else if (errno != EINTR && errno != EAGAIN) {
        return errno;
      }
    }
    return 0;
  }

  static constexpr int lookAtEnding = 50;  // milliseconds

  /// Of a terminal: its writes do not block, also where its user has stopped the output.
  const Descriptor own;
  const int descriptor;
  std::vector<std::function<void()>> waitingForEnd;
  std::function<void(std::function<void()>)> whenWritten;
  std::function<void()> whenBroken;
  std::function<void()> whenRoomAgain;
  std::mutex mutex;
  std::condition_variable changed;
  std::string waiting;
  std::size_t unwritten = 0;  // bytes, those that the thread is writing included
  bool full = false;
  bool ending = false;
  int broken = 0;  // errno
  std::thread thread;
};

OutputSink::OutputSink(MainQueue& main, int descriptor)
    : impl_(std::make_unique<Impl>(descriptor)) {
  auto alive = std::make_shared<OutputSink*>(this);
  impl_->whenBroken = [&main, alive = std::weak_ptr(alive)] {
    main.post([alive] {
      const auto self = alive.lock();
      if (self && (*self)->onBroken) (*self)->onBroken();
    });
  };
  impl_->whenWritten = [&main, alive = std::weak_ptr(alive)](std::function<void()> then) {
    main.post([alive, then = std::move(then)] {
      if (alive.lock()) then();
    });
  };
  impl_->whenRoomAgain = [&main, alive = std::weak_ptr(alive)] {
    main.post([alive] {
      const auto self = alive.lock();
      if (self && (*self)->onFullChanged) (*self)->onFullChanged(false);
    });
  };
  // The thread's function holds it, and goes with the sink.
  impl_->thread = std::thread([impl = impl_.get(), alive = std::move(alive)] { impl->work(); });
}

OutputSink::~OutputSink() {
  {
    const std::lock_guard lock(impl_->mutex);
    impl_->ending = true;
  }
  impl_->changed.notify_all();
  impl_->thread.join();
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
