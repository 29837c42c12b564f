#include "platform/queues/dispatch.h"

#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <condition_variable>
#include <mutex>
#include <thread>

#ifdef __SANITIZE_THREAD__
// A second at each exit, in case a thread still has a race to show, is nine minutes of a test run.
extern "C" const char* __tsan_default_options() {
  return "atexit_sleep_ms=20";
}

// GLib and OpenSSL are not built for the thread sanitizer, which therefore sees the memory that
// their threads hand over, but not the futexes and counters that they use for it. Our own code is
// still checked. Here, since every program with threads has this unit.
extern "C" const char* __tsan_default_suppressions() {
  return "called_from_lib:libglib-2.0.so.0\n"
         "called_from_lib:libgio-2.0.so.0\n"
         "called_from_lib:libgobject-2.0.so.0\n"
         "race:libcrypto.so.3\n"
         "race:libssl.so.3\n";
}
#endif

namespace vantrell {

namespace asio = boost::asio;

namespace {

/// Work that waits for the disk or another process leaves its core idle, so there are more threads
/// than cores.
unsigned defaultThreadCount() {
  return std::clamp(2 * std::thread::hardware_concurrency(), 4U, 16U);
}

}  // namespace

/// Shared with the serial queues, which may be around for longer than the pool. Counts its work
/// itself: what came between the end of the threads and the notice of it would neither run nor go.
struct BackgroundPool::Impl {
  explicit Impl(unsigned count) : threads(count) {}

  /// False, and the work is untouched, when the pool takes no more.
  bool post(Work&& work) {
    {
      const std::lock_guard lock(mutex);
      if (finished) return false;
      ++unfinished;
    }
    // An exception that escaped from work would otherwise reach the code that runs the queue.
    asio::post(threads, [this, work = std::move(work)]() mutable noexcept {
      work();
      work = nullptr;
      const std::lock_guard lock(mutex);
      if (--unfinished > 0 || !finishing) return;
      // Decided here: who posts all the time could keep the waiting thread waiting.
      finished = true;
      ended.notify_all();
    });
    return true;
  }

  void finish() {
    {
      std::unique_lock lock(mutex);
      finishing = true;
      finished = unfinished == 0;
      ended.wait(lock, [this] { return finished; });
    }
    threads.join();
  }

  asio::thread_pool threads;
  std::mutex mutex;
  std::condition_variable ended;
  std::size_t unfinished = 0;
  bool finishing = false;
  bool finished = false;  // and nothing is unfinished
};

/// Not an Asio strand: that one allocates and takes a lock for each piece of work, this one takes
/// whatever has come in one go, and it is safe to keep when the pool is gone.
struct SerialQueue::Impl : std::enable_shared_from_this<Impl> {
  Impl(std::shared_ptr<BackgroundPool::Impl> owner, std::string name)
      : pool(std::move(owner)), label(std::move(name)) {}

  void post(Work work) {
    {
      const std::lock_guard lock(mutex);
      waiting.push_back(std::move(work));
      if (std::exchange(active, true)) return;
    }
    activate();
  }

  void activate() {
    if (pool->post([self = shared_from_this()] { self->runBatch(); })) return;
    // It will never run, and what it holds may hold this queue.
    std::vector<Work> dropped;
    const std::lock_guard lock(mutex);
    dropped.swap(waiting);
    active = false;
  }

  /// Stays on its thread for a turn while work comes in: a stream that hops between threads finds
  /// its data in another core's cache, and its memory in another thread's arena.
  void runBatch() {
    const auto turnEnd = std::chrono::steady_clock::now() + turn;
    std::vector<Work> batch;
    do {
      if (!takeBatch(batch)) return;
      for (auto& work : batch) {
        work();
        work = nullptr;  // what it holds goes on this queue too, before the next piece runs
      }
      batch.clear();
    } while (std::chrono::steady_clock::now() < turnEnd);
    if (goesOn()) activate();  // after the other queues of the pool
  }

  /// False, and the queue is idle, when nothing waits.
  bool takeBatch(std::vector<Work>& batch) {
    const std::lock_guard lock(mutex);
    batch.swap(waiting);
    active = !batch.empty();
    return active;
  }
  bool goesOn() {
    const std::lock_guard lock(mutex);
    active = !waiting.empty();
    return active;
  }

  static constexpr std::chrono::milliseconds turn{5};
  const std::shared_ptr<BackgroundPool::Impl> pool;
  const std::string label;
  std::mutex mutex;
  std::vector<Work> waiting;
  bool active = false;
};

BackgroundPool::BackgroundPool(unsigned threads)
    : impl_(std::make_shared<Impl>(threads == 0 ? defaultThreadCount() : threads)) {}

BackgroundPool::~BackgroundPool() {
  impl_->finish();
}

void BackgroundPool::post(Work work) {
  impl_->post(std::move(work));
}

bool BackgroundPool::isIdle() const {
  const std::lock_guard lock(impl_->mutex);
  return impl_->unfinished == 0;
}

SerialQueue::SerialQueue(BackgroundPool& pool, std::string label)
    : impl_(std::make_shared<Impl>(pool.impl_, std::move(label))) {}

void SerialQueue::post(Work work) const {
  impl_->post(std::move(work));
}
const std::string& SerialQueue::label() const {
  return impl_->label;
}

}  // namespace vantrell
