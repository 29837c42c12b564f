// The thread that starts, feeds, reads and reaps every child of the program: epoll, posted work and
// timers. Part of Process; it runs until the program ends, because the kernel ties a child's
// death signal to the thread that started it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "platform/files/descriptor.h"
#include "platform/queues/dispatch.h"
#include "platform/queues/timer_table.h"

namespace vantrell {

class ProcessReactor {
 public:
  /// Starts the thread, with every signal blocked: a write to a closed pipe is then only an error.
  ProcessReactor();
  ProcessReactor(const ProcessReactor&) = delete;
  ProcessReactor& operator=(const ProcessReactor&) = delete;

  /// Any thread.
  void post(Work work);

  // The reactor's own thread only, from here on.

  using Handler = std::function<void()>;
  /// Keeps a descriptor watched; the handler is not called after it is gone.
  class Watch {
   public:
    Watch() = default;
    Watch(Watch&& other) noexcept
        : reactor_(std::exchange(other.reactor_, nullptr)), id_(other.id_) {}
    Watch& operator=(Watch&& other) noexcept;
    ~Watch() { reset(); }
    void reset();
    explicit operator bool() const { return reactor_ != nullptr; }

   private:
    friend class ProcessReactor;
    Watch(ProcessReactor* reactor, std::uint64_t id) : reactor_(reactor), id_(id) {}
    ProcessReactor* reactor_ = nullptr;
    std::uint64_t id_ = 0;
  };
  /// Calls the handler as long as the descriptor is readable, at its end or in error.
  [[nodiscard]] Watch whenReadable(int descriptor, Handler handler);
  [[nodiscard]] Watch whenWritable(int descriptor, Handler handler);
  [[nodiscard]] Timer after(Duration delay, Work work);

 private:
  struct Registration {
    int descriptor;
    Handler handler;
  };
  [[noreturn]] void run();
  void runPosted();
  int millisecondsToNextTimer() const;
  Watch watch(int descriptor, std::uint32_t events, Handler handler);
  void unwatch(std::uint64_t id);

  Descriptor epoll_;
  Descriptor wake_;
  std::mutex mutex_;
  std::vector<Work> posted_;
  std::uint64_t lastWatch_ = 0;
  std::unordered_map<std::uint64_t, std::shared_ptr<Registration>> watches_;
  TimerTable timers_;
};

}  // namespace vantrell
