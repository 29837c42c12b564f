#include "platform/values/uuid.h"

#include <cstring>

#include "platform/crypto/crypto.h"
#include "platform/text/ascii.h"

namespace vantrell {
namespace {

constexpr std::size_t textLength = 36;

constexpr bool isDashPlace(std::size_t i) {
  return i == 8 || i == 13 || i == 18 || i == 23;
}

}  // namespace

Uuid Uuid::random() {
  Uuid id;
  random(std::span(&id, 1));
  return id;
}

void Uuid::random(std::span<Uuid> ids) {
  static_assert(sizeof(Uuid) == 16);
  crypto::fillRandom(std::as_writable_bytes(ids));
  for (Uuid& id : ids) {
    id.bytes_[6] = static_cast<std::uint8_t>((id.bytes_[6] & 0x0F) | 0x40);  // version 4
    id.bytes_[8] = static_cast<std::uint8_t>((id.bytes_[8] & 0x3F) | 0x80);  // RFC 9562 variant
  }
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
  if (text.size() != textLength) return std::nullopt;
  Uuid id;
  std::size_t nibble = 0;
  for (std::size_t i = 0; i < textLength; ++i) {
    if (isDashPlace(i)) {
      if (text[i] != '-') return std::nullopt;
      continue;
    }
    const int digit = ascii::hexDigit(text[i]);
    if (digit < 0) return std::nullopt;
    std::uint8_t& byte = id.bytes_[nibble / 2];
    byte = static_cast<std::uint8_t>(byte << 4 | digit);
    ++nibble;
  }
  return id;
}

std::string Uuid::text() const {
  constexpr char hex[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(textLength);
  for (const std::uint8_t byte : bytes_) {
    if (isDashPlace(text.size())) text += '-';
    text += hex[byte >> 4];
    text += hex[byte & 0xF];
  }
  return text;
}

std::size_t Uuid::hash() const noexcept {
  // The bytes are random already; identifiers read from elsewhere may differ in either half only.
  std::uint64_t halves[2];
  std::memcpy(halves, bytes_.data(), sizeof halves);
  return static_cast<std::size_t>(halves[0] ^ (halves[1] * 0x9E3779B97F4A7C15ULL));
}

}  // namespace vantrell
