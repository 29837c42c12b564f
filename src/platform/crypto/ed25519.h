// Signatures with Ed25519 (RFC 8032). Pure functions, any thread.
#pragma once

#include <string_view>

namespace vantrell::crypto {

/// Whether the owner of the key has signed exactly these bytes. The key has 32 bytes and the
/// signature 64; other lengths are signatures of nothing.
bool isSignedEd25519(std::string_view message, std::string_view signature,
                     std::string_view publicKey);

}  // namespace vantrell::crypto
