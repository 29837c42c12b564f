#include "platform/crypto/crypto.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <glib.h>
#include <memory>
#include <sys/random.h>

namespace vantrell::crypto {

void fillRandom(std::span<std::byte> bytes) {
  while (!bytes.empty()) {
    const ssize_t got = getrandom(bytes.data(), bytes.size(), 0);
    if (got < 0 && errno != EINTR) std::abort();
    // A signal may cut short what is longer than 256 bytes.
    if (got > 0) bytes = bytes.subspan(static_cast<std::size_t>(got));
  }
}

std::array<std::uint8_t, 32> sha256(std::string_view bytes) {
  std::array<std::uint8_t, 32> digest{};
  gsize length = digest.size();
  const std::unique_ptr<GChecksum, decltype(&g_checksum_free)> checksum(
      g_checksum_new(G_CHECKSUM_SHA256), g_checksum_free);
  g_checksum_update(checksum.get(), reinterpret_cast<const guchar*>(bytes.data()),
                    static_cast<gssize>(bytes.size()));
  g_checksum_get_digest(checksum.get(), digest.data(), &length);
  return digest;
}

std::string base64(std::span<const std::uint8_t> bytes) {
  const std::unique_ptr<gchar, decltype(&g_free)> text(g_base64_encode(bytes.data(), bytes.size()),
                                                       g_free);
  return text.get();
}

std::string base64Url(std::span<const std::uint8_t> bytes) {
  std::string text = base64(bytes);
  std::ranges::replace(text, '+', '-');
  std::ranges::replace(text, '/', '_');
  std::erase(text, '=');
  return text;
}

std::optional<std::string> fromBase64(std::string_view text) {
  // The library skips what it does not know; so only what it would write itself counts as read.
  gsize length = 0;
  const std::unique_ptr<guchar, decltype(&g_free)> bytes(
      g_base64_decode(std::string(text).c_str(), &length), g_free);
  if (base64({bytes.get(), length}) != text) return std::nullopt;
  return std::string(reinterpret_cast<const char*>(bytes.get()), length);
}

bool equalInConstantTime(std::string_view left, std::string_view right) {
  std::size_t difference = left.size() ^ right.size();
  for (std::size_t i = 0; i < std::max(left.size(), right.size()); ++i) {
    const auto at = [i](std::string_view text) {
      return static_cast<unsigned char>(i < text.size() ? text[i] : 0);
    };
    difference |= static_cast<std::size_t>(at(left) ^ at(right));
  }
  return difference == 0;
}

}  // namespace vantrell::crypto
