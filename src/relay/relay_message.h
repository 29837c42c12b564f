// The text messages between the relay and a host, a client, or one that looks a pairing code up.
// Pure functions, any thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <expected>
#include <string>
#include <string_view>

namespace vantrell::relay {

/// What a connection says first.
struct Hello {
  enum class Role { host, client, resolve };
  Role role = Role::client;
  std::string pairID;       // of a host or client
  std::string pairingLink;  // of a host that wants codes for it; else empty
  std::string code;         // to look up; may be anything
};

inline constexpr std::size_t longestLink = 4096;
/// A hello with the longest link, escaped in the longest way, has room.
inline constexpr std::size_t longestHello = 32'768;

/// The error is a sentence for the one who sent it; it repeats nothing of the text.
std::expected<Hello, std::string> readHello(std::string_view text);

std::string hostReadyText();
std::string clientReadyText(bool isHostOnline);
std::string peerCountText(std::size_t count);
std::string pairingCodeText(std::string_view code, std::chrono::seconds life);
std::string hostOnlineText();
std::string hostOfflineText();
std::string pairingLinkText(std::string_view link);
std::string errorText(std::string_view sentence);

}  // namespace vantrell::relay
