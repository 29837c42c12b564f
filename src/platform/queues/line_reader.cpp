#include "platform/queues/line_reader.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>

#include "platform/terminal/terminal.h"

namespace vantrell {

namespace {

constexpr std::size_t chunkBytes = std::size_t{64} * 1024;
constexpr int backgroundWait = 200;  // milliseconds

/// Of a terminal with an open file of its own: what a poll saw may be gone before the read, by a
/// flush or another reader, and the read must not block then.
Descriptor sourceOf(int descriptor) {
  auto own = terminal::openAgain(descriptor, O_RDONLY);
  return own ? std::move(own) : Descriptor(::fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
}

}  // namespace

LineReader::LineReader(Executor& queue, Options options)
    : queue_(queue),
      options_(std::move(options)),
      source_(sourceOf(options_.descriptor)),
      cancel_(::eventfd(0, EFD_CLOEXEC)) {}

LineReader::~LineReader() {
  {
    const std::lock_guard lock(mutex_);
    cancelled_ = true;
    ::eventfd_write(cancel_.get(), 1);
    turn_.notify_all();
  }
  if (thread_.joinable()) thread_.join();
}

std::shared_ptr<LineReader> LineReader::begin(Executor& queue, Options options) {
  const std::shared_ptr<LineReader> reader(new LineReader(queue, std::move(options)));
  reader->thread_ =
      std::thread([raw = reader.get(), weak = std::weak_ptr(reader)] { raw->read(weak); });
  return reader;
}

void LineReader::discardPending() {
  // The reading thread holds it too from the poll to the end of the read.
  const std::lock_guard lock(mutex_);
  if (!options_.isInForeground || options_.isInForeground()) {
    terminal::discardTypedAhead(source_.get());
  }
  ++discards_;
  partial_.clear();
}

/// On the reading thread, which ends before this object does.
void LineReader::read(const std::weak_ptr<LineReader>& weak) {
  std::string chunk(chunkBytes, '\0');
  for (;;) {
    pollfd waits[2] = {{source_.get(), POLLIN, 0}, {cancel_.get(), POLLIN, 0}};
    // A bad descriptor is not waited for: the read says so.
    if (source_ && ::poll(waits, 2, -1) < 0 && errno == EINTR) continue;
    if (waits[1].revents != 0) return;
    if (source_ && !(options_.isInForeground ? options_.isInForeground()
                                             : terminal::isInForeground(source_.get()))) {
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
/// the end. False when the reader goes.
bool LineReader::handOver(std::unique_lock<std::mutex>& lock, const std::weak_ptr<LineReader>& weak,
                          std::string bytes) {
  if (cancelled_) return false;
  delivering_ = !bytes.empty();
  queue_.post([weak, bytes = std::move(bytes), discards = discards_] {
    if (const auto self = weak.lock()) self->deliver(bytes, discards);
  });
  turn_.wait(lock, [this] { return cancelled_ || !delivering_; });
  return !cancelled_;
}

/// `discards` is the count when the bytes were read.
void LineReader::deliver(const std::string& bytes, int discards) {
  const std::weak_ptr<LineReader> alive = weak_from_this();
  if (bytes.empty()) {
    if (!partial_.empty()) options_.onLine(std::exchange(partial_, {}));
    if (alive.use_count() > 1) options_.onEnd();
    return;
  }
  std::size_t start = 0;
  for (auto end = bytes.find('\n'); end != std::string::npos && discards == discards_;
       end = bytes.find('\n', start)) {
    partial_.append(bytes, start, end - start);
    start = end + 1;
    options_.onLine(std::exchange(partial_, {}));
    // The caller's own reference is gone: the reader was destroyed by its handler.
    if (alive.use_count() <= 1) return;
  }
  if (discards == discards_) partial_.append(bytes, start);
  const std::lock_guard lock(mutex_);
  delivering_ = false;
  turn_.notify_all();
}

}  // namespace vantrell
