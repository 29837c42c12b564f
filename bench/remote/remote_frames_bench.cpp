// Sealing and opening a message of 64 KiB, against the same cipher called directly, with a context
// and its key set up once.
#include <fmt/format.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include "ratio.h"
#include "remote/protocol/remote_crypto.h"

using namespace vantrell;

namespace {

constexpr int messagesInRound = 200;
constexpr int messageSize = 65'536;
constexpr double limit = 1 / 0.9;

struct Raw {
  Raw() {
    EVP_CipherInit_ex(context, EVP_aes_256_gcm(), nullptr, key, nullptr, 1);
    EVP_CipherInit_ex(opening, EVP_aes_256_gcm(), nullptr, key, nullptr, 0);
  }
  ~Raw() {
    EVP_CIPHER_CTX_free(context);
    EVP_CIPHER_CTX_free(opening);
  }
  void seal() {
    int written = 0;
    RAND_bytes(nonce, sizeof nonce);
    EVP_CipherInit_ex(context, nullptr, nullptr, nullptr, nonce, -1);
    EVP_CipherUpdate(context, ciphertext, &written, plaintext, messageSize);
    EVP_CipherFinal_ex(context, ciphertext, &written);
    EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_GET_TAG, sizeof tag, tag);
  }
  bool open() {
    int written = 0;
    EVP_CipherInit_ex(opening, nullptr, nullptr, nullptr, nonce, -1);
    EVP_CIPHER_CTX_ctrl(opening, EVP_CTRL_AEAD_SET_TAG, sizeof tag, tag);
    EVP_CipherUpdate(opening, plaintext, &written, ciphertext, messageSize);
    return EVP_CipherFinal_ex(opening, plaintext, &written) == 1;
  }
  EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
  EVP_CIPHER_CTX* opening = EVP_CIPHER_CTX_new();
  unsigned char key[32]{};
  unsigned char nonce[12]{};
  unsigned char tag[16]{};
  unsigned char plaintext[messageSize]{};
  unsigned char ciphertext[messageSize]{};
};

}  // namespace

int main() {
  bench::keepFreedMemory();
  static Raw raw;
  RemoteCrypto crypto{std::string(32, '\0')};
  const std::string plaintext(messageSize, '\0');
  const auto body = crypto.seal(plaintext)->substr(RemoteCrypto::prefixSize);
  raw.seal();
  std::size_t used = 0;  // keeps the results from being optimized away
  const auto compare = [&](auto&& ours, auto&& baseline) {
    const auto round = [&](auto& one) {
      return bench::processorTimed([&] {
        for (int i = 0; i < messagesInRound; ++i) used += one();
      });
    };
    return bench::compareUntilSteady(
        50, 1'000, [&] { return round(ours); }, [&] { return round(baseline); });
  };
  const auto sealing = compare([&] { return crypto.seal(plaintext)->size(); },
                               [&] {
                                 raw.seal();
                                 return 1u;
                               });
  const auto opening =
      compare([&] { return crypto.open(body)->size(); }, [&] { return raw.open() ? 1u : 0u; });
  if (used == 0) std::abort();
  return bench::report({"sealing 64 KiB", "the cipher alone", limit}, sealing.bestRatio()) |
         bench::report({"opening 64 KiB", "the cipher alone", limit}, opening.bestRatio());
}
