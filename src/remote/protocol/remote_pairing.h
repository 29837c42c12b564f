// Pairing links, which hold all that a client needs to reach a host and to open its messages, the
// key too, and the short codes that stand for a link at a relay. Values and pure functions, any
// thread. A link is a secret: it must not be logged.
#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>

#include "platform/values/url.h"

namespace vantrell {

enum class MacRemotePairingError {
  invalidLink,
  missingHost,
  invalidPort,
  invalidKey,
  invalidPairID,
  invalidRelay
};
std::string_view errorDescription(MacRemotePairingError error);

/// A link that has been read.
struct MacRemotePairing {
  std::string host;  // to dial directly
  std::uint16_t port = 0;
  std::string keyData;          // 32 bytes
  std::string pairID;           // of the pair at the relay
  std::optional<Url> relayURL;  // wss; absent: direct only
  std::string name;             // of the host, for people
  std::string link;             // as it was given, trimmed

  /// Reports the first thing that is wrong. A key of the query that occurs twice, and control
  /// characters, are an invalid link.
  static std::expected<MacRemotePairing, MacRemotePairingError> parse(std::string_view text);

  bool operator==(const MacRemotePairing&) const = default;
};

/// What a host puts into its link.
struct PairingLinkContent {
  std::string host;
  std::uint16_t port = 43765;
  std::string_view keyData;
  std::string relayURL;  // empty where the host uses none
  std::string name;      // of the computer; "My Mac" where it has none
};
std::string makePairingLink(const PairingLinkContent& content);

namespace RemotePairingCode {

inline constexpr std::size_t length = 8;
/// No 0, 1, I, L or O, which people confuse.
inline constexpr std::string_view alphabet = "23456789ABCDEFGHJKMNPQRSTUVWXYZ";

/// The code that a person has typed, in either case and with white space or dashes in it; nullopt
/// for anything else, such as a link.
std::optional<std::string> normalize(std::string_view text);

}  // namespace RemotePairingCode

}  // namespace vantrell
