#include "shell/desktop/qt_main_queue.h"

#include <QtCore/QBasicTimer>
#include <QtCore/QCoreApplication>
#include <QtCore/QEvent>
#include <QtCore/QObject>
#include <deque>
#include <mutex>

#include "platform/queues/timer_table.h"

namespace vantrell {

namespace {

using std::chrono::steady_clock;

/// How long posted work runs before the window's own events get their turn: a quarter of a frame.
constexpr std::chrono::milliseconds turn{4};

/// A longer wait is cut into pieces of this length.
constexpr std::chrono::hours longestWait{1};

Duration steadyNow() {
  return steady_clock::now().time_since_epoch();
}

QEvent::Type workPosted() {
  static const int type = QEvent::registerEventType();
  return static_cast<QEvent::Type>(type);
}

}  // namespace

class QtMainQueue::Receiver final : public QObject {
 public:
  ~Receiver() override {
    // Work that is dropped may post again from its destructor.
    for (auto work = take(); work; work = take()) work.reset();
  }

  void post(Work work) {
    const std::lock_guard lock(mutex_);
    work_.push_back(std::move(work));
    announce();
  }

  TimerTable timers{steadyNow, [this](Duration due) { wakeAt(due); }};

 protected:
  bool event(QEvent* event) override {
    if (!isOurs(*event)) return QObject::event(event);
    if (!continuation_.isActive()) runPosted();
    return true;
  }

  void timerEvent(QTimerEvent* event) override {
    if (event->timerId() == continuation_.timerId()) {
      continuation_.stop();
      runPosted();
    } else if (event->timerId() == alarm_.timerId()) {
      alarm_.stop();
      timers.fire();
    }
  }

 private:
  /// Read with the lock that the poster held when it made the event: the thread sanitizer does not
  /// see Qt's own.
  bool isOurs(const QEvent& event) {
    const std::lock_guard lock(mutex_);
    if (event.type() != workPosted()) return false;
    announced_ = false;
    return true;
  }

  /// With the lock held: makes sure that an event is on its way.
  void announce() {
    if (std::exchange(announced_, true)) return;
    QCoreApplication::postEvent(this, new QEvent(workPosted()));
  }

  std::optional<Work> take() {
    const std::lock_guard lock(mutex_);
    if (work_.empty()) return std::nullopt;
    std::optional<Work> first(std::move(work_.front()));
    work_.pop_front();
    // A dialog opened by this piece runs an event loop of its own, which must find the rest.
    if (!work_.empty()) announce();
    return first;
  }

  void runPosted() {
    const auto end = steady_clock::now() + turn;
    while (auto work = take()) {
      (*work)();
      work.reset();
      if (steady_clock::now() < end) continue;
      // Qt delivers posted events before it looks at the window system; a timer lets that go first.
      if (!continuation_.isActive()) continuation_.start(0, this);
      return;
    }
  }

  void wakeAt(Duration due) {
    const auto wait = std::clamp<Duration>(due - steadyNow(), Duration::zero(), longestWait);
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(wait);
    alarm_.start(static_cast<int>(milliseconds.count()), Qt::PreciseTimer, this);
  }

  std::mutex mutex_;
  std::deque<Work> work_;
  bool announced_ = false;
  QBasicTimer continuation_;
  QBasicTimer alarm_;
};

QtMainQueue::QtMainQueue() : receiver_(std::make_unique<Receiver>()) {}
QtMainQueue::~QtMainQueue() = default;

void QtMainQueue::post(Work work) {
  receiver_->post(std::move(work));
}

Date QtMainQueue::now() const {
  const std::chrono::duration<double> sinceEpoch =
      std::chrono::system_clock::now().time_since_epoch();
  return Date::sinceUnixEpoch(sinceEpoch.count());
}

Duration QtMainQueue::uptime() const {
  return steadyNow();
}

Timer QtMainQueue::after(Duration delay, Work work) {
  return receiver_->timers.after(delay, std::move(work));
}

Timer QtMainQueue::every(Duration period, std::function<void()> work) {
  return receiver_->timers.every(period, std::move(work));
}

}  // namespace vantrell
