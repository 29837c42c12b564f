// What connections send to the relay. Inputs are cut at NUL into messages; the first byte of each
// says who sends it, and whether as text.
//
// Whatever is said, nothing of it comes back in an error, the limits hold, and once all connections
// have gone nothing of them is left.
#include <cstdint>
#include <cstdlib>
#include <map>

#include "platform/values/json.h"
#include "relay/relay_message.h"
#include "relay/relay_rooms.h"

namespace {

using namespace vantrell;
using namespace vantrell::relay;

void require(bool holds) {
  if (!holds) std::abort();
}

struct Sink final : Connections {
  void sendText(PeerID, std::string text) override {
    const auto object = json::parseObject(text);
    require(object && json::text(*object, "type"));
  }
  void sendBinary(PeerID, const Bytes&) override {}
  void admit(PeerID) override {}
  void setPaused(PeerID, bool) override {}
  void close(PeerID, std::uint16_t) override {}
  void drop(PeerID) override {}
  std::size_t queuedBytes(PeerID) const override { return 0; }
  std::size_t heldBytes(PeerID) const override { return 0; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  Sink sink;
  RelayRooms rooms(sink, {.pairs = 3, .clientsPerPair = 2});
  Duration now = std::chrono::hours(1);
  constexpr PeerID count = 8;
  for (PeerID peer = 0; peer < count; ++peer) rooms.opened(peer, "10.0.0.1", now);
  while (!rest.empty()) {
    const auto message = rest.substr(0, rest.find('\0'));
    rest.remove_prefix(std::min(rest.size(), message.size() + 1));
    if (message.empty()) {
      rooms.tick(now += std::chrono::seconds(5));
      continue;
    }
    const auto kind = static_cast<unsigned char>(message[0]);
    const auto text = message.substr(1);
    if (const auto hello = readHello(text)) {
      require(hello->role == Hello::Role::resolve ||
              (hello->pairID.size() >= 16 && hello->pairID.size() <= 64));
      require(hello->pairingLink.size() <= longestLink);
    } else {
      require(hello.error().ends_with('.') && hello.error().size() < 80);
    }
    const PeerID peer = kind % count;
    if (kind & 0x40) {
      rooms.receivedBinary(peer, std::make_shared<const std::string>(text), now);
    } else {
      rooms.receivedText(peer, text, now);
    }
    require(rooms.pairCount() <= 3);
  }
  for (PeerID peer = 0; peer < count; ++peer) rooms.closed(peer);
  require(rooms.pairCount() == 0 && rooms.peerCount() == 0);
  return 0;
}
