#include "platform/dispatch.h"

#include <atomic>
#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/thread_pool.hpp>
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

/// Shared with the serial queues: a strand must not outlive the context it was made in.
struct BackgroundPool::Impl {
  explicit Impl(unsigned count) : threads(count) {}
  asio::thread_pool threads;
  std::atomic<bool> finished = false;
};

struct SerialQueue::Impl {
  Impl(std::shared_ptr<BackgroundPool::Impl> owner, std::string name)
      : pool(std::move(owner)), strand(pool->threads.get_executor()), label(std::move(name)) {}
  std::shared_ptr<BackgroundPool::Impl> pool;
  asio::strand<asio::thread_pool::executor_type> strand;
  std::string label;
};

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
  if (impl_->pool->finished) return;
  asio::post(impl_->strand, guarded(std::move(work)));
}

const std::string& SerialQueue::label() const {
  return impl_->label;
}
bool SerialQueue::isCurrent() const {
  return impl_->strand.running_in_this_thread();
}

}  // namespace vantrell
