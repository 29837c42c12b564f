#include "shell/desktop/qt_main_queue.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QEventLoop>

#include "support/main_queue_contract.h"

namespace vantrell {
namespace {

/// Qt wants its application object before any event loop, and the arguments for its whole life.
class Application {
 public:
  Application() : application_(count_, arguments_) {}

 private:
  int count_ = 1;
  char name_[8] = "test";
  char* arguments_[2] = {name_, nullptr};
  QCoreApplication application_;
};

class QtMainQueueUnderTest {
 public:
  MainQueue& queue() { return *queue_; }
  bool runUntil(const std::function<bool()>& condition) {
    QEventLoop loop;
    bool held = condition();
    const Timer check = queue_->every(1ms, [&] {
      held = condition();
      if (held) loop.quit();
    });
    const Timer limit = queue_->after(20s, [&] { loop.quit(); });
    if (!held) loop.exec();
    return held;
  }

 private:
  Application application_;
  std::unique_ptr<QtMainQueue> queue_ = std::make_unique<QtMainQueue>();
};

INSTANTIATE_TYPED_TEST_SUITE_P(Qt, MainQueueContract, QtMainQueueUnderTest);

TEST(QtMainQueue, GoesOnWorkingWhileADialogRunsItsOwnEventLoop) {
  QtMainQueueUnderTest body;
  std::string order;
  bool finished = false;
  Timer timer;
  body.queue().post([&] {
    order += 'a';
    timer = body.queue().after(2ms, [&] { order += 't'; });
    QEventLoop dialog;
    // Work queued behind this piece, posted from inside, and a timer: all come while it is open.
    body.queue().post([&] { order += 'c'; });
    const Timer close = body.queue().after(10ms, [&] { dialog.quit(); });
    dialog.exec();
    order += 'd';
    finished = true;
  });
  body.queue().post([&] { order += 'b'; });
  EXPECT_TRUE(body.runUntil([&] { return finished; }));
  EXPECT_EQ(order, "abctd");
}

TEST(QtMainQueue, LetsOtherEventsOfTheLoopInBetweenALongRowOfWork) {
  QtMainQueueUnderTest body;
  struct Other : QObject {
    void timerEvent(QTimerEvent*) override { ++turns; }
    int turns = 0;
  } other;
  other.startTimer(0);
  int turnsAtTheEnd = -1;
  std::function<void(int)> step = [&](int left) {
    const auto end = std::chrono::steady_clock::now() + 1ms;
    while (std::chrono::steady_clock::now() < end) {
    }
    if (left > 0) body.queue().post([&, left] { step(left - 1); });
    if (left == 0) turnsAtTheEnd = other.turns;
  };
  body.queue().post([&] { step(40); });
  EXPECT_TRUE(body.runUntil([&] { return turnsAtTheEnd >= 0; }));
  EXPECT_GT(turnsAtTheEnd, 2);
}

}  // namespace
}  // namespace vantrell
