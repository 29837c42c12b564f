// The runtime at the other end of the pipes: the program of the benchmark itself, started again by
// a client, with its part in the environment.
#pragma once

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>
#include <unistd.h>

#include "app/stream_dialect.h"

namespace vantrell::bench {

struct StreamPart {
  const StreamDialect* dialect;
  /// The file whose lines are the turn's updates. Empty: `stamps` updates, one each `period`, whose
  /// text is the time of its own writing.
  std::string linesFile{};
  int stamps = 0;
  std::chrono::microseconds period{};

  Environment environment() const {
    Environment environment = currentEnvironment();
    environment["BENCH_DIALECT"] = std::to_string(dialect - streamDialects().data());
    environment["BENCH_LINES"] = linesFile;
    environment["BENCH_STAMPS"] = std::to_string(stamps);
    environment["BENCH_PERIOD"] = std::to_string(period.count());
    return environment;
  }
};

/// Nanoseconds of the clock that all processes share.
inline std::int64_t monotonicNow() {
  return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

/// Plays the part, to be called first of all in main(). False when this is the benchmark.
inline bool wasStreamAgent() {
  const char* chosen = std::getenv("BENCH_DIALECT");
  if (!chosen) return false;
  const StreamDialect& dialect = streamDialects().at(std::stoul(chosen));
  const auto say = [](std::string_view bytes) {
    while (!bytes.empty()) {
      const auto count = write(STDOUT_FILENO, bytes.data(), bytes.size());
      if (count <= 0) std::_Exit(1);
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
  };
  // Before the turn, whose time counts.
  std::string lines;
  if (const std::string file = std::getenv("BENCH_LINES"); !file.empty()) {
    lines.resize(std::filesystem::file_size(file));
    std::ifstream(file, std::ios::binary)
        .read(lines.data(), static_cast<std::streamsize>(lines.size()));
  }
  std::string line;
  for (const auto& [reads, answer] : dialect.untilTheTurn) {
    for (int i = 0; i < reads; ++i) std::getline(std::cin, line);
    if (!answer.empty()) say(answer + "\n");
  }
  say(lines);
  const int stamps = std::stoi(std::getenv("BENCH_STAMPS"));
  const std::chrono::microseconds period(std::stol(std::getenv("BENCH_PERIOD")));
  auto due = std::chrono::steady_clock::now();
  for (int i = 0; i < stamps; ++i) {
    std::this_thread::sleep_until(due += period);
    say(dialect.update("m", std::to_string(monotonicNow()) + " ") + "\n");
  }
  say(dialect.endOfTurn + "\n");
  while (std::getline(std::cin, line)) {
  }
  return true;
}

}  // namespace vantrell::bench
