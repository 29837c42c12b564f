// How a benchmark says what it found: as a ratio to a baseline measured in the same run, so that
// the answer means the same on every machine. A program that misses its limit exits with 1.
//
//     int main() {
//       const auto found = bench::compare(500, startWithProcess, startBare);
//       return bench::report({"process start to first line", "a bare posix_spawn", 1.5}, found);
//     }
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fmt/format.h>
#include <malloc.h>
#include <string_view>
#include <sys/resource.h>
#include <vector>

namespace vantrell::bench {

using Clock = std::chrono::steady_clock;
/// Times of one round each: the medians, and the best ones, which nothing disturbed.
struct Measured {
  Clock::duration ours;
  Clock::duration baseline;
  Clock::duration bestOurs;
  Clock::duration bestBaseline;
  double ratio() const {
    return static_cast<double>(ours.count()) / static_cast<double>(baseline.count());
  }
  /// For what keeps several cores busy against what keeps one: whatever else the machine does slows
  /// the former down alone, and the medians would measure that.
  double bestRatio() const {
    return static_cast<double>(bestOurs.count()) / static_cast<double>(bestBaseline.count());
  }
};

/// The time that one call takes.
template <typename Body>
Clock::duration timed(Body&& body) {
  const auto start = Clock::now();
  body();
  return Clock::now() - start;
}

/// The processor time of this thread so far.
inline std::chrono::nanoseconds threadProcessorTime() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// That of one call: what else the machine does would fall on the longer of two works alone.
template <typename Body>
Clock::duration processorTimed(Body&& body) {
  const auto start = threadProcessorTime();
  body();
  return threadProcessorTime() - start;
}

/// For what allocates much: from here on freed memory stays with the program. Otherwise each round
/// has the kernel clear new pages for it, at a price that has to do with the machine and its load
/// and nothing with the work.
inline void keepFreedMemory() {
  constexpr int all = 1 << 30;  // bytes
  mallopt(M_TRIM_THRESHOLD, all);
  mallopt(M_MMAP_THRESHOLD, all);
}

/// Has the allocator join now what was freed in small pieces. It does so at the next large request,
/// and then one work pays for what the other one has freed.
inline void joinFreedMemory() {
  constexpr std::size_t large = 1 << 20;  // bytes
  void* volatile memory = std::malloc(large);
  std::free(memory);
}

/// The processor time of this program so far, that of all its threads and not of its children.
inline std::chrono::nanoseconds processorTime() {
  rusage used{};
  getrusage(RUSAGE_SELF, &used);
  const auto of = [](const timeval& time) {
    return std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
  };
  return of(used.ru_utime) + of(used.ru_stime);
}

inline Measured measured(std::vector<Clock::duration>& oursTimes,
                         std::vector<Clock::duration>& baselineTimes) {
  const auto median = [](std::vector<Clock::duration>& times) {
    const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::ranges::nth_element(times, middle);
    return *middle;
  };
  const auto bestOurs = std::ranges::min(oursTimes);
  const auto bestBaseline = std::ranges::min(baselineTimes);
  return {median(oursTimes), median(baselineTimes), bestOurs, bestBaseline};
}

/// Measures both by turns, so that the noise of the machine hits both alike. Each body does one
/// round and returns the time that counts (with timed(), or less than the whole round). The first
/// tenth of the rounds only warms up.
template <typename Ours, typename Baseline>
Measured compare(int rounds, Ours&& ours, Baseline&& baseline) {
  std::vector<Clock::duration> oursTimes;
  std::vector<Clock::duration> baselineTimes;
  for (int round = -rounds / 10; round < rounds; ++round) {
    const Clock::duration oursTime = ours();
    const Clock::duration baselineTime = baseline();
    if (round < 0) continue;
    oursTimes.push_back(oursTime);
    baselineTimes.push_back(baselineTime);
  }
  return measured(oursTimes, baselineTimes);
}

/// The same for works that are judged by their best times: goes on until neither best time has
/// improved for `steady` rounds, at most `most`. A busy machine gets more rounds, and not another
/// answer.
template <typename Ours, typename Baseline>
Measured compareUntilSteady(int steady, int most, Ours&& ours, Baseline&& baseline) {
  std::vector<Clock::duration> oursTimes{ours()};
  std::vector<Clock::duration> baselineTimes{baseline()};
  const auto improves = [](const std::vector<Clock::duration>& times, Clock::duration time) {
    const Clock::duration best = std::ranges::min(times);
    return time < best - best / 200;
  };
  for (int round = 1, last = 0; round < most && round - last <= steady; ++round) {
    const Clock::duration oursTime = ours();
    const Clock::duration baselineTime = baseline();
    if (improves(oursTimes, oursTime) || improves(baselineTimes, baselineTime)) last = round;
    oursTimes.push_back(oursTime);
    baselineTimes.push_back(baselineTime);
  }
  return measured(oursTimes, baselineTimes);
}

struct Claim {
  std::string_view what;      // "process start to first line"
  std::string_view baseline;  // "a bare posix_spawn"
  double limit;               // the ratio must not exceed it
};

/// Prints one line. Answers the exit status for main(): combine several with |.
inline int report(const Claim& claim, double ratio) {
  const bool kept = ratio <= claim.limit;
  fmt::print("{}: {:.2f} of {} (limit {:.2g}){}\n", claim.what, ratio, claim.baseline, claim.limit,
             kept ? "" : " MISSED");
  return kept ? EXIT_SUCCESS : EXIT_FAILURE;
}

inline int report(const Claim& claim, const Measured& found) {
  return report(claim, found.ratio());
}

}  // namespace vantrell::bench
