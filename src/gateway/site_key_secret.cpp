#include "gateway/site_key_secret.h"

#include "platform/crypto/crypto.h"
#include "platform/text/text.h"

namespace vantrell::siteKeySecret {

namespace {

std::string_view withoutBlanks(std::string_view text) {
  constexpr std::string_view blanks = " \t";
  const auto first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

}  // namespace

std::string generate() {
  std::array<std::uint8_t, 32> bytes;
  crypto::fillRandom(std::as_writable_bytes(std::span(bytes)));
  return "vtl_" + crypto::base64Url(bytes);
}

std::string hashOf(std::string_view secret) {
  return crypto::base64(crypto::sha256(secret));
}

std::string_view shownIn(const GatewayHeaders& headers) {
  if (const auto value = headers.find("authorization")) {
    const auto space = value->find(' ');
    if (space != std::string_view::npos && text::lowercased(value->substr(0, space)) == "bearer") {
      return withoutBlanks(value->substr(space));
    }
  }
  return withoutBlanks(headers.find("x-api-key").value_or(""));
}

}  // namespace vantrell::siteKeySecret
