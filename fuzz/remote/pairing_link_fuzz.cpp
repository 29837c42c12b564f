// Pairing links and codes, which come from a clipboard, a file or a relay. What is read as a link
// can be made again from what was read, and then says the same.
#include <cstdint>
#include <cstdlib>

#include "platform/text/text.h"
#include "remote/protocol/remote_crypto.h"
#include "remote/protocol/remote_pairing.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace vantrell;
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  if (const auto code = RemotePairingCode::normalize(input)) {
    require(code->size() == RemotePairingCode::length);
    require(RemotePairingCode::normalize(*code) == code);
    require(!MacRemotePairing::parse(input));
  }
  const auto pairing = MacRemotePairing::parse(input);
  if (!pairing) return 0;
  require(pairing->keyData.size() == RemoteCrypto::keySize && pairing->port != 0);
  require(!pairing->host.empty() && !pairing->name.empty() && text::isValidUtf8(pairing->name));
  require(!pairing->relayURL || pairing->relayURL->scheme() == "wss");
  const auto again = MacRemotePairing::parse(
      makePairingLink({.host = pairing->host,
                       .port = pairing->port,
                       .keyData = pairing->keyData,
                       .relayURL = pairing->relayURL ? pairing->relayURL->text() : "",
                       .name = pairing->name}));
  require(again && again->host == pairing->host && again->port == pairing->port &&
          again->keyData == pairing->keyData && again->name == pairing->name &&
          again->relayURL == pairing->relayURL);
  return 0;
}
