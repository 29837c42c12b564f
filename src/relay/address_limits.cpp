#include "relay/address_limits.h"

#include <algorithm>
#include <arpa/inet.h>
#include <netinet/in.h>

namespace vantrell::relay {

std::string networkOf(std::string_view address) {
  const std::string text(address);
  in6_addr bytes{};
  if (::inet_pton(AF_INET6, text.c_str(), &bytes) != 1) return text;
  std::fill(std::begin(bytes.s6_addr) + 8, std::end(bytes.s6_addr), std::uint8_t{0});
  char written[INET6_ADDRSTRLEN];
  return ::inet_ntop(AF_INET6, &bytes, written, sizeof written);
}

AddressLimits::Entry& AddressLimits::entry(std::string_view address, Duration now) {
  if (entries_.size() >= limits_.addresses) clean(now);
  const auto [at, isNew] = entries_.try_emplace(networkOf(address));
  if (isNew) {
    at->second.credit = limits_.newConnections;
    at->second.creditAt = now;
  }
  return at->second;
}

bool AddressLimits::mayConnect(std::string_view address, Duration now) {
  // With so many addresses at once, new ones wait until some are forgotten.
  if (entries_.size() >= limits_.addresses) {
    clean(now);
    if (entries_.size() >= limits_.addresses && !entries_.contains(networkOf(address)))
      return false;
  }
  auto& one = entry(address, now);
  const double seconds = std::chrono::duration<double>(now - one.creditAt).count();
  one.credit =
      std::min(limits_.newConnections, one.credit + seconds * limits_.newConnectionsPerSecond);
  one.creditAt = now;
  if (one.credit < 1) return false;
  one.credit -= 1;
  return true;
}

bool AddressLimits::hasRoom(std::string_view address) const {
  const auto found = entries_.find(networkOf(address));
  return found == entries_.end() || found->second.connections < limits_.connections;
}

void AddressLimits::opened(std::string_view address, Duration now) {
  ++entry(address, now).connections;
}

void AddressLimits::closed(std::string_view address) {
  const auto found = entries_.find(networkOf(address));
  if (found != entries_.end() && found->second.connections > 0) --found->second.connections;
}

AddressLimits::Guess AddressLimits::mayGuess(std::string_view address, Duration now) {
  auto& one = entry(address, now);
  if (now - one.guessesSince >= limits_.guessWindow) one.guesses = 0;
  if (one.guesses >= limits_.guesses) return Guess::tooManyOfAddress;
  if (now - guessesInAllSince_ >= limits_.guessWindowInAll) guessesInAll_ = 0;
  return guessesInAll_ >= limits_.guessesInAll ? Guess::tooManyInAll : Guess::allowed;
}

void AddressLimits::guessedWrong(std::string_view address, Duration now) {
  auto& one = entry(address, now);
  if (one.guesses++ == 0) one.guessesSince = now;
  if (guessesInAll_++ == 0) guessesInAllSince_ = now;
}

void AddressLimits::clean(Duration now) {
  const auto fullAgain = std::chrono::duration<double>(
      limits_.newConnections / std::max(limits_.newConnectionsPerSecond, 0.001));
  std::erase_if(entries_, [&](const auto& each) {
    const Entry& one = each.second;
    return one.connections == 0 && now - one.creditAt >= fullAgain &&
           (one.guesses == 0 || now - one.guessesSince >= limits_.guessWindow);
  });
}

}  // namespace vantrell::relay
