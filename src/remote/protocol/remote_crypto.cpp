#include "remote/protocol/remote_crypto.h"

#include <algorithm>
#include <array>

#include "platform/crypto/crypto.h"

namespace vantrell {

std::string_view errorDescription(RemoteCryptoError error) {
  switch (error) {
    case RemoteCryptoError::invalidKey: return "The remote pairing key is invalid.";
    case RemoteCryptoError::invalidFrame: return "The encrypted remote message is invalid.";
    case RemoteCryptoError::oversizedFrame: return "The remote message is too large.";
  }
  return {};
}

RemoteCrypto::RemoteCrypto(std::string_view keyData) {
  if (keyData.size() != keySize) return;
  std::array<std::uint8_t, keySize> key;
  std::ranges::copy(keyData, key.begin());
  cipher_.emplace(key);
}

std::expected<std::string, RemoteFailure> RemoteCrypto::seal(std::string_view data) {
  if (!cipher_) return std::unexpected(RemoteCryptoError::invalidKey);
  if (data.size() > longestPlaintext) return std::unexpected(RemoteCryptoError::oversizedFrame);
  const auto length = data.size() + crypto::AesGcm::overhead;
  std::string frame;
  frame.reserve(prefixSize + length);
  for (int shift = 24; shift >= 0; shift -= 8) frame += static_cast<char>(length >> shift);
  cipher_->seal(data, frame);
  return frame;
}

std::expected<std::string, RemoteFailure> RemoteCrypto::open(std::string_view body) {
  if (!cipher_) return std::unexpected(RemoteCryptoError::invalidKey);
  if (body.size() < crypto::AesGcm::overhead || body.size() > longestBody) {
    return std::unexpected(RemoteCryptoError::invalidFrame);
  }
  if (auto plaintext = cipher_->open(body)) return std::move(*plaintext);
  return std::unexpected(RemoteFailure(
      "The remote message does not open with this pairing key. Pair again if the host's key has "
      "been changed."));
}

std::string RemoteCrypto::makeKey() {
  std::string key(keySize, '\0');
  crypto::fillRandom(std::as_writable_bytes(std::span(key)));
  return key;
}

std::expected<std::size_t, RemoteFailure> RemoteCrypto::frameLength(std::string_view prefix) {
  if (prefix.size() != prefixSize) return std::unexpected(RemoteCryptoError::invalidFrame);
  std::size_t length = 0;
  for (const char byte : prefix) length = length << 8 | static_cast<unsigned char>(byte);
  if (length == 0 || length > longestBody) {
    return std::unexpected(RemoteCryptoError::oversizedFrame);
  }
  return length;
}

std::string RemoteCrypto::pairID(std::string_view keyData) {
  const auto digest = crypto::sha256(keyData);
  return crypto::base64Url(std::span(digest).first<16>());
}

}  // namespace vantrell
