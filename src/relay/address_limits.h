// What one address, and all of them together, may ask of the relay: connections at a time, new
// connections, and guesses of pairing codes. Pure: time is given. An IPv6 address counts as its
// network of 64 bits, which is what one customer has at least. Memory is bounded: an address is
// forgotten when it has no connection and nothing of it counts any more.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>

#include "platform/queues/dispatch.h"

namespace vantrell::relay {

class AddressLimits {
 public:
  struct Limits {
    std::size_t connections = 64;        // of one address at a time
    std::size_t addresses = 50'000;      // that are remembered
    double newConnections = 60;          // of one address at once ...
    double newConnectionsPerSecond = 5;  // ... and how fast that many come back
    int guesses = 10;                    // wrong codes of one address in `guessWindow`
    int guessesInAll = 600;              // wrong codes in `guessWindowInAll`
    std::chrono::minutes guessWindow{10};
    std::chrono::minutes guessWindowInAll{1};
  };
  enum class Guess { allowed, tooManyOfAddress, tooManyInAll };

  explicit AddressLimits(const Limits& limits) : limits_(limits) {}

  /// Counts a new connection; false when it is one too many for now.
  bool mayConnect(std::string_view address, Duration now);
  bool hasRoom(std::string_view address) const;
  void opened(std::string_view address, Duration now);
  void closed(std::string_view address);

  Guess mayGuess(std::string_view address, Duration now);
  void guessedWrong(std::string_view address, Duration now);

  /// Forgets what does not count any more.
  void clean(Duration now);
  std::size_t size() const { return entries_.size(); }

 private:
  struct Entry {
    std::size_t connections = 0;
    double credit = 0;  // new connections
    Duration creditAt{};
    int guesses = 0;
    Duration guessesSince{};
  };
  Entry& entry(std::string_view address, Duration now);

  const Limits limits_;
  std::unordered_map<std::string, Entry> entries_;
  int guessesInAll_ = 0;
  Duration guessesInAllSince_{};
};

/// "10.0.0.7" as it is; of an IPv6 address the first 64 bits.
std::string networkOf(std::string_view address);

}  // namespace vantrell::relay
