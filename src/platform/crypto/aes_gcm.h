// AES-256-GCM (OpenSSL) with random nonces, for many messages under one key: the key is set up
// once, which for a short message would cost more than sealing it. An object may be used by one
// thread at a time; a copy is independent.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace vantrell::crypto {

class AesGcm {
 public:
  static constexpr std::size_t keySize = 32;    // bytes
  static constexpr std::size_t nonceSize = 12;  // bytes, in front of the ciphertext
  static constexpr std::size_t tagSize = 16;    // bytes, after it
  static constexpr std::size_t overhead = nonceSize + tagSize;

  explicit AesGcm(std::span<const std::uint8_t, keySize> key);
  ~AesGcm();
  AesGcm(const AesGcm& other);
  AesGcm(AesGcm&&) noexcept;
  AesGcm& operator=(AesGcm other) noexcept;

  /// Appends nonce, ciphertext and tag. Random nonces are safe for 2^32 messages under one key. At
  /// most 2 GiB less one byte. Ends the process where OpenSSL fails, since nothing may go unsealed.
  void seal(std::string_view plaintext, std::string& out);
  /// nullopt for what was not sealed under this key, was changed since, or is shorter than
  /// `overhead`.
  std::optional<std::string> open(std::string_view sealed);

 private:
  struct Contexts;
  std::unique_ptr<Contexts> contexts_;
};

}  // namespace vantrell::crypto
