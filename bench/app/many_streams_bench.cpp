// Fifty conversations that stream at once, each through a process of its own, against one: how long
// an update takes from the runtime's write to the observer, and what processor time it costs here.
// The runtimes take turns in the three dialects, and write as often as a fast model does.
#include "app/stream_fixture.h"
#include "ratio.h"

using namespace vantrell;

namespace {

constexpr int many = 50;
constexpr std::chrono::milliseconds period{10};
constexpr int updates = 400;
constexpr int rounds = 6;

/// What was seen while all conversations streamed; starts and ends are left out.
struct Seen {
  std::vector<double> delays;  // nanoseconds
  std::chrono::nanoseconds processorTime{};
  std::ptrdiff_t updates = 0;

  double delay(double share) {
    const auto place = delays.begin() +
                       static_cast<std::ptrdiff_t>(share * static_cast<double>(delays.size() - 1));
    std::ranges::nth_element(delays, place);
    return *place;
  }
  double cost() const {
    return static_cast<double>(processorTime.count()) / static_cast<double>(updates);
  }
};

void stream(int conversations, int round, Seen& seen) {
  std::vector<bench::StreamPart> parts;
  for (int i = 0; i < conversations; ++i) {
    const auto& dialect = bench::streamDialects()[static_cast<std::size_t>(i + round) % 3];
    parts.push_back({&dialect, "", updates, period});
  }
  std::map<ThreadExecutionKey, std::size_t> counts;  // bytes of text that were looked at
  bool isOver = false;
  std::chrono::nanoseconds start{};
  bench::StreamFixture(parts).run(
      [] {},
      [&](const ChangeBatch& batch, const WorkspaceTree& tree) {
        for (const auto& [key, changes] : batch.conversations) {
          if (changes.changedEntries.empty() || isOver) continue;
          const bool allStream = std::cmp_equal(counts.size(), conversations);
          // The times of all updates so far, each with a blank behind it.
          const std::string& times = tree.thread(key)->entries.back().text;
          std::size_t& read = counts[key];
          const auto last = times.rfind(' ', times.size() - 2);
          const double delay =
              static_cast<double>(bench::monotonicNow() - std::stoll(times.substr(last + 1)));
          const auto news =
              std::count(times.begin() + static_cast<std::ptrdiff_t>(read), times.end(), ' ');
          read = times.size();
          if (std::count(times.begin(), times.end(), ' ') >= updates - 1) {
            isOver = true;
            seen.processorTime += bench::processorTime() - start;
          }
          if (!allStream) {
            start = bench::processorTime();
            continue;
          }
          seen.updates += news;
          seen.delays.push_back(delay);
        }
      },
      [](const Transcript&) {});
  if (!isOver || seen.delays.empty()) std::abort();
}

}  // namespace

int main() {
  if (bench::wasStreamAgent()) return 0;
  Seen one, all;
  for (int round = 0; round < rounds; ++round) {
    stream(1, round, one);
    stream(many, round, all);
  }
  const auto tell = [](std::string_view name, Seen& seen) {
    fmt::print("{}: {} updates, median {:.0f} us, 99th percentile {:.0f} us, processor {:.1f} us\n",
               name, seen.delays.size(), seen.delay(0.5) / 1e3, seen.delay(0.99) / 1e3,
               seen.cost() / 1e3);
  };
  tell("one conversation", one);
  tell(fmt::format("{} conversations", many), all);
  return bench::report({"median delay of an update among 50 streams", "that of one stream", 2.0},
                       all.delay(0.5) / one.delay(0.5)) |
         bench::report({"99th percentile of the delay", "that of one stream", 4.0},
                       all.delay(0.99) / one.delay(0.99)) |
         bench::report({"processor time of an update", "that of one stream", 1.0},
                       all.cost() / one.cost());
}
