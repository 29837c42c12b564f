#include "platform/crypto/aes_gcm.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>
#include <openssl/evp.h>
#include <utility>

#include "platform/crypto/crypto.h"

namespace vantrell::crypto {

namespace {

using Context = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

/// Only what would leave a message unsealed comes here: no memory, or no such cipher.
void require(bool holds) {
  if (!holds) std::abort();
}

/// Fetched once: OpenSSL would look for the implementation at every set-up of a key.
const EVP_CIPHER* cipher() {
  static EVP_CIPHER* const fetched = EVP_CIPHER_fetch(nullptr, "AES-256-GCM", nullptr);
  return fetched;
}

Context newContext() {
  Context context(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  require(context != nullptr);
  return context;
}

Context contextWithKey(std::span<const std::uint8_t> key, bool seals) {
  auto context = newContext();
  require(EVP_CipherInit_ex2(context.get(), cipher(), key.data(), nullptr, seals, nullptr) == 1);
  return context;
}

Context copyOf(const Context& other) {
  auto context = newContext();
  require(EVP_CIPHER_CTX_copy(context.get(), other.get()) == 1);
  return context;
}

const unsigned char* bytesOf(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

}  // namespace

struct AesGcm::Contexts {
  Context sealing;
  Context opening;
};

AesGcm::AesGcm(std::span<const std::uint8_t, keySize> key)
    : contexts_(std::make_unique<Contexts>(contextWithKey(key, true), contextWithKey(key, false))) {
}
AesGcm::~AesGcm() = default;
AesGcm::AesGcm(const AesGcm& other)
    : contexts_(std::make_unique<Contexts>(copyOf(other.contexts_->sealing),
                                           copyOf(other.contexts_->opening))) {}
AesGcm::AesGcm(AesGcm&&) noexcept = default;
AesGcm& AesGcm::operator=(AesGcm other) noexcept {
  contexts_ = std::move(other.contexts_);
  return *this;
}

void AesGcm::seal(std::string_view plaintext, std::string& out) {
  require(plaintext.size() <= std::numeric_limits<int>::max());
  auto* const context = contexts_->sealing.get();
  const auto start = out.size();
  const auto end = start + plaintext.size() + overhead;
  // GCC 12 may pass a larger size than was asked for.
  out.resize_and_overwrite(end, [&](char* bytes, std::size_t) {
    auto* const nonce = reinterpret_cast<unsigned char*>(bytes) + start;
    fillRandom(std::as_writable_bytes(std::span(nonce, nonceSize)));
    require(EVP_CipherInit_ex2(context, nullptr, nullptr, nonce, -1, nullptr) == 1);
    auto* const ciphertext = nonce + nonceSize;
    auto* const tag = ciphertext + plaintext.size();
    int written = 0;
    require(EVP_CipherUpdate(context, ciphertext, &written, bytesOf(plaintext),
                             static_cast<int>(plaintext.size())) == 1);
    require(EVP_CipherFinal_ex(context, tag, &written) == 1);
    require(EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_GET_TAG, tagSize, tag) == 1);
    return end;
  });
}

std::optional<std::string> AesGcm::open(std::string_view sealed) {
  if (sealed.size() < overhead || sealed.size() > std::numeric_limits<int>::max()) {
    return std::nullopt;
  }
  auto* const context = contexts_->opening.get();
  const auto ciphertext = sealed.substr(nonceSize, sealed.size() - overhead);
  std::array<unsigned char, tagSize> tag;
  std::ranges::copy(sealed.substr(sealed.size() - tagSize), tag.begin());
  require(EVP_CipherInit_ex2(context, nullptr, nullptr, bytesOf(sealed), -1, nullptr) == 1);
  require(EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_SET_TAG, tagSize, tag.data()) == 1);
  std::string plaintext;
  bool isGenuine = false;
  plaintext.resize_and_overwrite(ciphertext.size(), [&](char* text, std::size_t) {
    auto* const bytes = reinterpret_cast<unsigned char*>(text);
    int written = 0;
    require(EVP_CipherUpdate(context, bytes, &written, bytesOf(ciphertext),
                             static_cast<int>(ciphertext.size())) == 1);
    isGenuine = EVP_CipherFinal_ex(context, bytes + ciphertext.size(), &written) == 1;
    return ciphertext.size();
  });
  if (!isGenuine) return std::nullopt;
  return plaintext;
}

}  // namespace vantrell::crypto
