// The one place where the traffic of remote control is encrypted and framed. A message is JSON
// text, sealed with AES-256-GCM under the pairing key of 32 random bytes, which host and client
// share. Who has the key is trusted; there is no other log-in. A relay sees sealed bytes alone.
//
//   sealed body: nonce (12 bytes), ciphertext, tag (16 bytes)
//   frame of a byte stream: length of the body (4 bytes, big-endian), body
//
// A relay gets the body alone, as one binary WebSocket message.
#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>

#include "platform/crypto/aes_gcm.h"

namespace vantrell {

enum class RemoteCryptoError { invalidKey, invalidFrame, oversizedFrame };
std::string_view errorDescription(RemoteCryptoError error);

/// Why a message could not be sealed or read; the connection that it came from ends.
struct RemoteFailure {
  /// Absent where the cipher refuses the key or the bytes, or the plaintext is not a message.
  std::optional<RemoteCryptoError> crypto;
  std::string description;  // for people

  RemoteFailure(RemoteCryptoError error) : crypto(error), description(errorDescription(error)) {}
  explicit RemoteFailure(std::string text) : description(std::move(text)) {}
};

/// Seals and opens under one key, which is set up once. Used by one thread at a time; each
/// connection has its own. A key of another length is accepted here and refused by each operation.
class RemoteCrypto {
 public:
  static constexpr std::size_t keySize = 32;           // bytes
  static constexpr std::size_t prefixSize = 4;         // bytes
  static constexpr std::size_t longestBody = 1 << 24;  // bytes, sealed
  static constexpr std::size_t longestPlaintext = longestBody - crypto::AesGcm::overhead;

  explicit RemoteCrypto(std::string_view keyData);

  /// A frame with its prefix. Each call draws its own nonce, so a broadcast seals once for each
  /// receiver.
  std::expected<std::string, RemoteFailure> seal(std::string_view data);
  /// The plaintext of a body without prefix.
  std::expected<std::string, RemoteFailure> open(std::string_view body);

  // Pure functions, any thread.

  /// A new pairing key: 32 random bytes.
  static std::string makeKey();
  /// The length of the body that the 4 bytes of a prefix announce, 1 to `longestBody`.
  static std::expected<std::size_t, RemoteFailure> frameLength(std::string_view prefix);
  /// The public name of a pairing, by which a relay brings host and client together: 22 characters
  /// of URL-safe Base64, from which the key cannot be found.
  static std::string pairID(std::string_view keyData);

 private:
  std::optional<crypto::AesGcm> cipher_;
};

}  // namespace vantrell
