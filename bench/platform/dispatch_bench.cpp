// What a post costs on the queues: they carry every event of the program, so a post must cost
// little more than the least there is, a locked list that one thread fills and another empties.
#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <thread>

#include "platform/queues/run_loop.h"
#include "ratio.h"

using namespace vantrell;

namespace {

constexpr int posts = 100'000;

/// Posts from this thread to a thread that runs the work: `post(work)` until the last one has run.
template <typename Post>
bench::Clock::duration timeOf(Post&& post) {
  return bench::timed([&] {
    auto last = std::make_shared<std::promise<void>>();
    const auto reached = last->get_future();
    auto count = std::make_shared<int>(0);
    for (int index = 0; index < posts; ++index) {
      post(Work([last, count] {
        if (++*count == posts) last->set_value();
      }));
    }
    reached.wait();
  });
}

/// A locked list, with a wake-up for each piece of work.
class PlainQueue {
 public:
  void post(Work work) {
    const std::lock_guard lock(mutex_);
    works_.push_back(std::move(work));
    posted_.notify_one();
  }
  void run(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    while (posted_.wait(lock, stop, [this] { return !works_.empty(); })) {
      Work work = std::move(works_.front());
      works_.pop_front();
      lock.unlock();
      work();
      lock.lock();
    }
  }

 private:
  std::mutex mutex_;
  std::condition_variable_any posted_;
  std::deque<Work> works_;
};

}  // namespace

int main() {
  PlainQueue plain;
  const std::jthread plainThread([&](const std::stop_token& stop) { plain.run(stop); });
  const auto baseline = [&] { return timeOf([&](Work work) { plain.post(std::move(work)); }); };
  RunLoop loop;
  std::jthread loopThread([&] { loop.run(); });
  BackgroundPool pool(2);
  const SerialQueue serial(pool, "bench");

  const auto main = bench::compare(
      20, [&] { return timeOf([&](Work work) { loop.post(std::move(work)); }); }, baseline);
  const auto serialQueue = bench::compare(
      20, [&] { return timeOf([&](Work work) { serial.post(std::move(work)); }); }, baseline);
  loop.quit();
  const auto perSecond = [](bench::Clock::duration time) {
    return posts / std::chrono::duration<double>(time).count();
  };
  fmt::print("posts a second: main queue {:.0f}, serial queue {:.0f}, locked list {:.0f}\n",
             perSecond(main.ours), perSecond(serialQueue.ours), perSecond(main.baseline));
  // The list itself varies by a factor of three with the luck of its wake-ups.
  return bench::report({"post to the main queue", "a locked list", 4}, main) |
         bench::report({"post to a serial queue", "a locked list", 4}, serialQueue);
}
