#include "platform/crypto/ed25519.h"

#include <memory>
#include <openssl/evp.h>

namespace vantrell::crypto {

bool isSignedEd25519(std::string_view message, std::string_view signature,
                     std::string_view publicKey) {
  const auto bytes = [](std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
  };
  if (publicKey.size() != 32 || signature.size() != 64) return false;
  const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
      EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr, bytes(publicKey), publicKey.size()),
      EVP_PKEY_free);
  const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                        EVP_MD_CTX_free);
  return key && context &&
         EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key.get()) == 1 &&
         EVP_DigestVerify(context.get(), bytes(signature), signature.size(), bytes(message),
                          message.size()) == 1;
}

}  // namespace vantrell::crypto
