#include "platform/dispatch.h"

#include <atomic>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <mutex>
#include <thread>

namespace vantrell {

namespace asio = boost::asio;

namespace {

/// Work that waits for the disk or another process leaves its core idle, so there are more threads
/// than cores.
unsigned defaultThreadCount() {
  return std::clamp(2 * std::thread::hardware_concurrency(), 4U, 16U);
}

/// An exception that escaped from work would otherwise end up in whoever runs the queue.
auto guarded(Work work) {
  return [work = std::move(work)]() mutable noexcept { work(); };
}

}  // namespace

/// Shared with the serial queues, which may be around for longer than the pool.
struct BackgroundPool::Impl {
  explicit Impl(unsigned count) : threads(count) {}
  void post(Work work) { asio::post(threads, guarded(std::move(work))); }
  asio::thread_pool threads;
  std::atomic<bool> finished = false;
};

/// Not an Asio strand: that one allocates and takes a lock for each piece of work, this one takes
/// whatever has come in one go, and it is safe to keep when the pool is gone.
struct SerialQueue::Impl : std::enable_shared_from_this<Impl> {
  Impl(std::shared_ptr<BackgroundPool::Impl> owner, std::string name)
      : pool(std::move(owner)), label(std::move(name)) {}

  void post(Work work) {
    {
      const std::lock_guard lock(mutex);
      if (pool->finished) return;
      waiting.push_back(std::move(work));
      if (std::exchange(active, true)) return;
    }
    activate();
  }

  void activate() {
    pool->post([self = shared_from_this()] { self->runBatch(); });
  }

  void runBatch() {
    std::vector<Work> batch;
    {
      const std::lock_guard lock(mutex);
      batch.swap(waiting);
    }
    const auto* const outer = std::exchange(current, this);
    for (auto& work : batch) {
      work();
      work = nullptr;  // what it holds goes on this queue too, before the next piece runs
    }
    current = outer;
    {
      const std::lock_guard lock(mutex);
      active = !waiting.empty();
      if (!active) return;
    }
    activate();  // behind the other queues of the pool
  }

  static thread_local const Impl* current;
  const std::shared_ptr<BackgroundPool::Impl> pool;
  const std::string label;
  std::mutex mutex;
  std::vector<Work> waiting;
  bool active = false;
};

thread_local const SerialQueue::Impl* SerialQueue::Impl::current = nullptr;

BackgroundPool::BackgroundPool(unsigned threads)
    : impl_(std::make_shared<Impl>(threads == 0 ? defaultThreadCount() : threads)) {}

BackgroundPool::~BackgroundPool() {
  impl_->threads.join();
  impl_->finished = true;
}

void BackgroundPool::post(Work work) {
  asio::post(impl_->threads, guarded(std::move(work)));
}

SerialQueue::SerialQueue(BackgroundPool& pool, std::string label)
    : impl_(std::make_shared<Impl>(pool.impl_, std::move(label))) {}

void SerialQueue::post(Work work) const {
  impl_->post(std::move(work));
}
const std::string& SerialQueue::label() const {
  return impl_->label;
}
bool SerialQueue::isCurrent() const {
  return Impl::current == impl_.get();
}

}  // namespace vantrell
