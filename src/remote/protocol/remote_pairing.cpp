#include "remote/protocol/remote_pairing.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <map>

#include "platform/crypto/crypto.h"
#include "platform/text/ascii.h"
#include "platform/text/text.h"
#include "remote/protocol/remote_crypto.h"

namespace vantrell {

namespace {

using Error = MacRemotePairingError;

/// The items that have a value; nullopt where a reader could be misled.
std::optional<std::map<std::string, std::string>> valuesOf(const Url& url) {
  std::map<std::string, std::string> values;
  for (auto& [name, value] : url.queryItems()) {
    if (!value) continue;
    const auto isControl = [](unsigned char byte) { return byte < ' ' || byte == 0x7F; };
    if (!text::isValidUtf8(*value) || std::ranges::any_of(*value, isControl)) return std::nullopt;
    if (!values.emplace(std::move(name), std::move(*value)).second) return std::nullopt;
  }
  return values;
}

std::optional<std::uint16_t> portOf(std::string_view text) {
  std::uint16_t port = 0;
  const auto end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, port);
  if (read.ec != std::errc() || read.ptr != end || port == 0) return std::nullopt;
  return port;
}

/// In either alphabet of Base64, with or without padding.
std::optional<std::string> keyOf(std::string text) {
  std::ranges::replace(text, '-', '+');
  std::ranges::replace(text, '_', '/');
  while (text.size() % 4 != 0) text += '=';
  auto key = crypto::fromBase64(text);
  if (key && key->size() != RemoteCrypto::keySize) return std::nullopt;
  return key;
}

bool isPairID(std::string_view text) {
  const auto isPlain = [](char c) { return ascii::isAlphanumeric(c) || c == '-' || c == '_'; };
  return text.size() >= 16 && text.size() <= 64 && std::ranges::all_of(text, isPlain);
}

std::optional<Url> relayOf(std::string_view text) {
  auto url = Url::parse(text);
  if (!url || (url->scheme() != "https" && url->scheme() != "wss")) return std::nullopt;
  if (url->scheme() == "https") url = Url::parse("wss" + url->text().substr(5));
  return url;
}

}  // namespace

std::string_view errorDescription(MacRemotePairingError error) {
  switch (error) {
    case Error::invalidLink: return "This is not a vantrell pairing link.";
    case Error::missingHost: return "The pairing link is missing the host Mac address.";
    case Error::invalidPort: return "The pairing link contains an invalid port.";
    case Error::invalidKey: return "The pairing link contains an invalid access key.";
    case Error::invalidPairID: return "The pairing link contains an invalid relay ID.";
    case Error::invalidRelay: return "The automatic relay must use HTTPS.";
  }
  return {};
}

std::expected<MacRemotePairing, Error> MacRemotePairing::parse(std::string_view given) {
  MacRemotePairing pairing;
  pairing.link = text::trimmed(given);
  const auto url = Url::parse(pairing.link);
  // Links that were made under the program's earlier name still pair.
  if (!url || (url->scheme() != "vantrell" && url->scheme() != "larkmoor") ||
      url->host() != "pair") {
    return std::unexpected(Error::invalidLink);
  }
  const auto values = valuesOf(*url);
  if (!values) return std::unexpected(Error::invalidLink);
  const auto value = [&](const std::string& key) -> std::string_view {
    const auto found = values->find(key);
    return found == values->end() ? std::string_view() : found->second;
  };

  pairing.host = text::trimmed(value("host"));
  if (pairing.host.empty()) return std::unexpected(Error::missingHost);
  const auto port = portOf(value("port"));
  if (!port) return std::unexpected(Error::invalidPort);
  pairing.port = *port;
  auto key = keyOf(std::string(value("key")));
  if (!key) return std::unexpected(Error::invalidKey);
  pairing.keyData = std::move(*key);
  pairing.pairID = values->contains("pair") ? value("pair") : RemoteCrypto::pairID(pairing.keyData);
  if (!isPairID(pairing.pairID)) return std::unexpected(Error::invalidPairID);
  if (const auto relay = text::trimmed(value("relay")); !relay.empty()) {
    pairing.relayURL = relayOf(relay);
    if (!pairing.relayURL) return std::unexpected(Error::invalidRelay);
  }
  pairing.name = text::trimmed(value("name"));
  if (pairing.name.empty()) pairing.name = pairing.host;
  return pairing;
}

std::string makePairingLink(const PairingLinkContent& content) {
  // What a query may hold as it is stays so: a shorter link makes a smaller QR code.
  const auto encoded = [](std::string_view text) { return percentEncoded(text, "-._~:/"); };
  const std::string_view keyData = content.keyData;
  const std::span key(reinterpret_cast<const std::uint8_t*>(keyData.data()), keyData.size());
  return fmt::format("vantrell://pair?host={}&port={}&key={}&pair={}&relay={}&name={}",
                     encoded(content.host), content.port, crypto::base64Url(key),
                     RemoteCrypto::pairID(keyData), encoded(content.relayURL),
                     encoded(content.name.empty() ? "My Mac" : content.name));
}

std::optional<std::string> RemotePairingCode::normalize(std::string_view text) {
  std::string code;
  while (!(text = text::trimmed(text)).empty()) {
    const char c = text.front();
    text.remove_prefix(1);
    if (c == '-') continue;
    code += c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    if (code.size() > length || !alphabet.contains(code.back())) return std::nullopt;
  }
  if (code.size() != length) return std::nullopt;
  return code;
}

}  // namespace vantrell
