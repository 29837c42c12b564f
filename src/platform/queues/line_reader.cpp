#include "platform/queues/line_reader.h"

#include <cerrno>
#include <condition_variable>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>

#include "platform/files/descriptor.h"
#include "platform/terminal/terminal.h"

namespace vantrell {

namespace {

constexpr std::size_t chunkBytes = std::size_t{64} * 1024;
constexpr int backgroundWait = 200;  // milliseconds

}  // namespace

/// The thread may be around for longer than the reader: in a read that waits, where the system has
/// no other.
struct LineReader::Shared {
  Shared(Executor& executor, const Options& options)
      : queue(executor),
        isInForeground(options.isInForeground),
        source(terminal::openAgain(options.descriptor, O_RDONLY)),
        cancel(::eventfd(0, EFD_CLOEXEC)) {
    neverWaits = static_cast<bool>(source);
    if (!source) source = Descriptor(::fcntl(options.descriptor, F_DUPFD_CLOEXEC, 0));
    struct stat kind{};
    isSocket = source && ::fstat(source.get(), &kind) == 0 && S_ISSOCK(kind.st_mode);
  }
  void read(const std::weak_ptr<LineReader>& reader);
  bool handOver(std::unique_lock<std::mutex>& lock, const std::weak_ptr<LineReader>& reader,
                std::string bytes, int discardsBefore);

  Executor& queue;
  const std::function<bool()> isInForeground;
  /// Of a terminal or a pipe an open file of its own: what a poll saw may be gone before the read,
  /// by a flush or another reader, and the read must not wait then.
  Descriptor source;
  const Descriptor cancel;
  bool neverWaits = false;
  bool isSocket = false;
  std::mutex mutex;
  std::condition_variable turn;
  bool cancelled = false;
  bool delivering = false;
  int discards = 0;  // changed on the queue only
};

LineReader::LineReader(Executor& queue, Options options)
    : options_(std::move(options)), shared_(std::make_shared<Shared>(queue, options_)) {}

LineReader::~LineReader() {
  const std::lock_guard lock(shared_->mutex);
  shared_->cancelled = true;
  ::eventfd_write(shared_->cancel.get(), 1);
  shared_->turn.notify_all();
}

std::shared_ptr<LineReader> LineReader::begin(Executor& queue, Options options) {
  const std::shared_ptr<LineReader> reader(new LineReader(queue, std::move(options)));
  std::thread([shared = reader->shared_, weak = std::weak_ptr(reader)] {
    shared->read(weak);
  }).detach();
  return reader;
}

void LineReader::discardPending() {
  // The reading thread holds it too from the poll to the end of the read.
  const std::lock_guard lock(shared_->mutex);
  if (!options_.isInForeground || options_.isInForeground()) {
    terminal::discardTypedAhead(shared_->source.get());
  }
  ++shared_->discards;
  partial_.clear();
}

void LineReader::Shared::read(const std::weak_ptr<LineReader>& reader) {
  std::string chunk(chunkBytes, '\0');
  for (;;) {
    pollfd waits[2] = {{source.get(), POLLIN, 0}, {cancel.get(), POLLIN, 0}};
    // A bad descriptor is not waited for: the read says so.
    if (source && ::poll(waits, 2, -1) < 0 && errno == EINTR) continue;
    if (waits[1].revents != 0) return;
    if (source && !(isInForeground ? isInForeground() : terminal::isInForeground(source.get()))) {
      // What is typed is for the program in the foreground.
      ::poll(&waits[1], 1, backgroundWait);
      continue;
    }
    std::unique_lock lock(mutex);
    // What was seen may have been discarded while the lock was awaited.
    if (cancelled || (source && ::poll(waits, 1, 0) == 0)) continue;
    const int discardsBefore = discards;
    // The queue must not wait for what this may wait for.
    if (!neverWaits && !isSocket) lock.unlock();
    const ssize_t count = isSocket ? ::recv(source.get(), chunk.data(), chunk.size(), MSG_DONTWAIT)
                                   : ::read(source.get(), chunk.data(), chunk.size());
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (!lock.owns_lock()) lock.lock();
    const auto length = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    if (!handOver(lock, reader, chunk.substr(0, length), discardsBefore) || count <= 0) return;
  }
}

/// One chunk at a time: input that comes faster than it is used waits where it is. No bytes mean
/// the end. False when the reader goes.
bool LineReader::Shared::handOver(std::unique_lock<std::mutex>& lock,
                                  const std::weak_ptr<LineReader>& reader, std::string bytes,
                                  int discardsBefore) {
  if (cancelled) return false;
  delivering = !bytes.empty();
  queue.post([reader, bytes = std::move(bytes), discardsBefore] {
    if (const auto self = reader.lock()) self->deliver(bytes, discardsBefore);
  });
  turn.wait(lock, [this] { return cancelled || !delivering; });
  return !cancelled;
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
  for (auto end = bytes.find('\n'); end != std::string::npos && discards == shared_->discards;
       end = bytes.find('\n', start)) {
    partial_.append(bytes, start, end - start);
    start = end + 1;
    options_.onLine(std::exchange(partial_, {}));
    // The caller's own reference is gone: the reader was destroyed by its handler.
    if (alive.use_count() <= 1) return;
  }
  if (discards == shared_->discards) partial_.append(bytes, start);
  const std::lock_guard lock(shared_->mutex);
  shared_->delivering = false;
  shared_->turn.notify_all();
}

}  // namespace vantrell
