#include "platform/queues/run_loop.h"

#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cerrno>
#include <condition_variable>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <thread>

#include "platform/files/descriptor.h"
#include "platform/queues/timer_table.h"
#include "platform/terminal/terminal.h"

namespace vantrell {

namespace asio = boost::asio;

struct RunLoop::Impl {
  Impl() : timers(steadyUptime, [this](Duration due) { wakeAt(due); }) {}

  void wakeAt(Duration due) {
    alarm.expires_at(std::chrono::steady_clock::time_point(due));
    alarm.async_wait([this](const boost::system::error_code& error) {
      if (!error) timers.fire();
    });
  }

  // One thread runs it: asio then passes work on without waking anybody.
  asio::io_context context{1};
  asio::executor_work_guard<asio::io_context::executor_type> staysAlive{context.get_executor()};
  asio::steady_timer alarm{context};
  std::atomic<bool> quitting = false;
  TimerTable timers;
};

RunLoop::RunLoop() : impl_(std::make_unique<Impl>()) {}
RunLoop::~RunLoop() = default;

void RunLoop::run() {
  impl_->context.restart();
  // A quit() from another thread that came before the restart is seen here, a later one stops the
  // context.
  if (!impl_->quitting) impl_->context.run();
  impl_->quitting = false;
}

void RunLoop::quit() {
  impl_->quitting = true;
  impl_->context.stop();
}

void RunLoop::post(Work work) {
  asio::post(impl_->context, [work = std::move(work)]() mutable noexcept { work(); });
}

Date RunLoop::now() const {
  return Date::currentCoarse();
}

Duration RunLoop::uptime() const {
  return steadyUptime();
}

Timer RunLoop::after(Duration delay, Work work) {
  return impl_->timers.after(delay, std::move(work));
}

Timer RunLoop::every(Duration period, std::function<void()> work) {
  return impl_->timers.every(period, std::move(work));
}

class RunLoop::SignalWatch : public std::enable_shared_from_this<SignalWatch> {
 public:
  SignalWatch(asio::io_context& context, std::function<void(int)> handler)
      : signals_(context), handler_(std::move(handler)) {}

  void add(int signal) {
    boost::system::error_code ignored;  // a number that is not a signal never arrives
    std::ignore = signals_.add(signal, ignored);
  }

  void wait() {
    signals_.async_wait(
        [weak = weak_from_this()](const boost::system::error_code& error, int signal) {
          const auto self = weak.lock();
          if (!self || error) return;
          self->handler_(signal);
          self->wait();
        });
  }

 private:
  asio::signal_set signals_;
  std::function<void(int)> handler_;
};

std::shared_ptr<RunLoop::SignalWatch> RunLoop::watchSignals(const std::vector<int>& signals,
                                                            std::function<void(int)> handler) {
  auto watch = std::make_shared<SignalWatch>(impl_->context, std::move(handler));
  for (const int signal : signals) watch->add(signal);
  watch->wait();
  return watch;
}

namespace {

/// A descriptor of our own for the same source. Of a terminal with an open file of its own, whose
/// reads do not block without changing the mode of those that other programs share: what a poll saw
/// may be gone before the read, by a flush or another reader.
Descriptor openAgain(int descriptor) {
  if (terminal::isTerminal(descriptor)) {
    const auto path = "/proc/self/fd/" + std::to_string(descriptor);
    Descriptor own(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (own) return own;
    // Not permitted, as after a change of the user.
  }
  return Descriptor(::fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
}

}  // namespace

/// Reads on a thread of its own. The event loop could only read without blocking, and that mode
/// would be shared with every other program on the same pipe; nor can it watch a plain file.
class RunLoop::LineWatch : public std::enable_shared_from_this<LineWatch> {
 public:
  LineWatch(RunLoop& loop, int descriptor, std::function<void(std::string)> onLine,
            std::function<void()> onEnd)
      : loop_(loop),
        source_(openAgain(descriptor)),
        onLine_(std::move(onLine)),
        onEnd_(std::move(onEnd)) {}

  ~LineWatch() {
    {
      const std::lock_guard lock(mutex_);
      cancelled_ = true;
      ::eventfd_write(cancel_.get(), 1);
      turn_.notify_all();
    }
    if (thread_.joinable()) thread_.join();
  }

  void begin() {
    thread_ = std::thread([this, weak = weak_from_this()] { read(weak); });
  }

  void discardPending() {
    // The reading thread holds it too from the poll to the end of the read.
    const std::lock_guard lock(mutex_);
    terminal::discardTypedAhead(source_.get());
    ++discards_;
    partial_.clear();
  }

 private:
  static constexpr std::size_t chunkBytes = std::size_t{64} * 1024;
  static constexpr int backgroundWait = 200;  // milliseconds

  /// On the reading thread, which ends before this object does.
  void read(const std::weak_ptr<LineWatch>& weak) {
    std::string chunk(chunkBytes, '\0');
    for (;;) {
      pollfd waits[2] = {{source_.get(), POLLIN, 0}, {cancel_.get(), POLLIN, 0}};
      // A bad descriptor is not waited for: the read says so.
      if (source_ && ::poll(waits, 2, -1) < 0 && errno == EINTR) continue;
      if (waits[1].revents != 0) return;
      if (source_ && !terminal::isInForeground(source_.get())) {
        // What is typed is for the program in the foreground.
        ::poll(&waits[1], 1, backgroundWait);
        continue;
      }
      std::unique_lock lock(mutex_);
      // What was seen may have been discarded while the lock was awaited.
      if (source_ && ::poll(waits, 1, 0) == 0) continue;
      const ssize_t count = ::read(source_.get(), chunk.data(), chunk.size());
      if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
      const auto length = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
      if (!handOver(lock, weak, chunk.substr(0, length)) || count <= 0) return;
    }
  }

  /// One chunk at a time: input that comes faster than it is used waits where it is. No bytes mean
  /// the end. False when the watch goes.
  bool handOver(std::unique_lock<std::mutex>& lock, const std::weak_ptr<LineWatch>& weak,
                std::string bytes) {
    if (cancelled_) return false;
    delivering_ = !bytes.empty();
    loop_.post([weak, bytes = std::move(bytes), discards = discards_] {
      if (const auto self = weak.lock()) self->deliver(bytes, discards);
    });
    turn_.wait(lock, [this] { return cancelled_ || !delivering_; });
    return !cancelled_;
  }

  /// `discards` is the count when the bytes were read.
  void deliver(const std::string& bytes, int discards) {
    const std::weak_ptr<LineWatch> alive = weak_from_this();
    if (bytes.empty()) {
      if (!partial_.empty()) onLine_(std::exchange(partial_, {}));
      if (alive.use_count() > 1) onEnd_();
      return;
    }
    std::size_t start = 0;
    for (auto end = bytes.find('\n'); end != std::string::npos && discards == discards_;
         end = bytes.find('\n', start)) {
      partial_.append(bytes, start, end - start);
      start = end + 1;
      onLine_(std::exchange(partial_, {}));
      // The caller's own reference is gone: the watch was destroyed by its handler.
      if (alive.use_count() <= 1) return;
    }
    if (discards == discards_) partial_.append(bytes, start);
    const std::lock_guard lock(mutex_);
    delivering_ = false;
    turn_.notify_all();
  }

  RunLoop& loop_;
  Descriptor source_;
  Descriptor cancel_{::eventfd(0, EFD_CLOEXEC)};
  std::function<void(std::string)> onLine_;
  std::function<void()> onEnd_;
  std::string partial_;  // the main queue's
  std::mutex mutex_;
  std::condition_variable turn_;
  bool cancelled_ = false;
  bool delivering_ = false;
  int discards_ = 0;  // changed on the main queue only
  std::thread thread_;
};

std::shared_ptr<RunLoop::LineWatch> RunLoop::watchLines(int descriptor,
                                                        std::function<void(std::string)> onLine,
                                                        std::function<void()> onEnd) {
  auto watch = std::make_shared<LineWatch>(*this, descriptor, std::move(onLine), std::move(onEnd));
  watch->begin();
  return watch;
}

void RunLoop::discardPending(LineWatch& watch) {
  watch.discardPending();
}

}  // namespace vantrell
