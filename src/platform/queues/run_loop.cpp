#include "platform/queues/run_loop.h"

#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

#include "platform/queues/timer_table.h"

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

}  // namespace vantrell
