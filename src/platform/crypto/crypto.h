// Random bytes, digests and Base64 for secrets. Pure functions, any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace vantrell::crypto {

/// From the system's generator, which blocks only until the machine has booted. Without it nothing
/// would be unique or secret, so the process ends instead.
void fillRandom(std::span<std::byte> bytes);

std::array<std::uint8_t, 32> sha256(std::string_view bytes);

/// RFC 4648 with padding.
std::string base64(std::span<const std::uint8_t> bytes);
/// The same with the alphabet that URLs take, without padding.
std::string base64Url(std::span<const std::uint8_t> bytes);

/// Reads what base64() writes, and nothing else: nullopt for missing padding, line breaks, or bits
/// that belong to no byte.
std::optional<std::string> fromBase64(std::string_view text);

/// The time it takes depends on the longer length alone, so that it tells nothing about where two
/// texts differ.
bool equalInConstantTime(std::string_view left, std::string_view right);

}  // namespace vantrell::crypto
