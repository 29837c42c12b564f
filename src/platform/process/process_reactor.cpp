#include "platform/process/process_reactor.h"

#include <array>
#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <thread>

namespace vantrell {

ProcessReactor::ProcessReactor()
    : epoll_(::epoll_create1(EPOLL_CLOEXEC)),
      wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      timers_(steadyUptime, [](Duration) {}) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = 0;  // no watch has this number
  ::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, wake_.get(), &event);
  sigset_t all;
  sigset_t before;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread([this] { run(); }).detach();
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void ProcessReactor::post(Work work) {
  const std::lock_guard lock(mutex_);
  const bool asleep = posted_.empty();
  posted_.push_back(std::move(work));
  if (asleep) ::eventfd_write(wake_.get(), 1);
}

void ProcessReactor::run() {
  std::array<epoll_event, 64> events{};
  for (;;) {
    const int count =
        ::epoll_wait(epoll_.get(), events.data(), events.size(), millisecondsToNextTimer());
    for (int index = 0; index < count; ++index) {
      const auto id = events[static_cast<std::size_t>(index)].data.u64;
      if (id == 0) {
        eventfd_t ignored = 0;
        ::eventfd_read(wake_.get(), &ignored);
        continue;
      }
      // An earlier handler of this round may have ended the watch, and a handler its own.
      const auto found = watches_.find(id);
      if (found == watches_.end()) continue;
      const auto registration = found->second;
      registration->handler();
    }
    runPosted();
    for (auto due = timers_.next(); due && *due <= steadyUptime(); due = timers_.next()) {
      timers_.fire();
    }
  }
}

void ProcessReactor::runPosted() {
  std::vector<Work> batch;
  {
    const std::lock_guard lock(mutex_);
    batch.swap(posted_);
  }
  for (auto& work : batch) {
    work();
    work = nullptr;
  }
}

int ProcessReactor::millisecondsToNextTimer() const {
  const auto due = timers_.next();
  if (!due) return -1;
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(*due - steadyUptime());
  return static_cast<int>(std::clamp<std::int64_t>(wait.count(), 0, 60'000));
}

ProcessReactor::Watch ProcessReactor::whenReadable(int descriptor, Handler handler) {
  return watch(descriptor, EPOLLIN, std::move(handler));
}

ProcessReactor::Watch ProcessReactor::whenWritable(int descriptor, Handler handler) {
  return watch(descriptor, EPOLLOUT, std::move(handler));
}

Timer ProcessReactor::after(Duration delay, Work work) {
  return timers_.after(delay, std::move(work));
}

ProcessReactor::Watch ProcessReactor::watch(int descriptor, std::uint32_t events, Handler handler) {
  const auto id = ++lastWatch_;
  epoll_event event{};
  event.events = events;
  event.data.u64 = id;
  if (::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, descriptor, &event) != 0) return {};
  watches_.emplace(id, std::make_shared<Registration>(descriptor, std::move(handler)));
  return {this, id};
}

void ProcessReactor::unwatch(std::uint64_t id) {
  const auto node = watches_.extract(id);
  if (node) ::epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, node.mapped()->descriptor, nullptr);
}

ProcessReactor::Watch& ProcessReactor::Watch::operator=(Watch&& other) noexcept {
  if (this != &other) {
    reset();
    reactor_ = std::exchange(other.reactor_, nullptr);
    id_ = other.id_;
  }
  return *this;
}

void ProcessReactor::Watch::reset() {
  if (auto* reactor = std::exchange(reactor_, nullptr)) reactor->unwatch(id_);
}

}  // namespace vantrell
