// The main queue of the window: work runs on Qt's event loop, on the thread that made this object,
// between the window's own events. The QCoreApplication must outlive it.
#pragma once

#include <functional>
#include <memory>

#include "platform/queues/dispatch.h"

namespace vantrell {

class QtMainQueue final : public MainQueue {
 public:
  QtMainQueue();
  ~QtMainQueue() override;

  void post(Work work) override;
  Date now() const override;
  Duration uptime() const override;
  [[nodiscard]] Timer after(Duration delay, Work work) override;
  [[nodiscard]] Timer every(Duration period, std::function<void()> work) override;

 private:
  class Receiver;
  std::unique_ptr<Receiver> receiver_;
};

}  // namespace vantrell
