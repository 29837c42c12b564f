#include "relay/relay_rooms.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>

#include "platform/values/json.h"
#include "relay/relay_message.h"

namespace vantrell::relay {
namespace {

using namespace std::chrono_literals;

constexpr std::string_view pairA = "AAAAAAAAAAAAAAAAAAAAAA";
constexpr std::string_view pairB = "BBBBBBBBBBBBBBBBBBBBBB";
constexpr std::string_view linkA = "vantrell://pair?host=a&key=secret";

/// Writes down what happens to connections; how much is queued and held is the test's to say.
class Recorded final : public Connections {
 public:
  void sendText(PeerID peer, std::string text) override { add(peer, std::move(text)); }
  void sendBinary(PeerID peer, const Bytes& bytes) override {
    add(peer, "binary " + *bytes);
    if (keepsQueued) queued[peer] += bytes->size();
  }
  void admit(PeerID) override {}
  void setPaused(PeerID peer, bool isPaused) override {
    isPaused ? void(paused.insert(peer)) : void(paused.erase(peer));
  }
  void close(PeerID peer, std::uint16_t code) override {
    add(peer, "close " + std::to_string(code));
  }
  void drop(PeerID peer) override { add(peer, "drop"); }
  std::size_t queuedBytes(PeerID peer) const override {
    return queued.contains(peer) ? queued.at(peer) : 0;
  }
  std::size_t heldBytes(PeerID peer) const override { return queuedBytes(peer); }

  /// What has happened to the peer since the last call.
  std::vector<std::string> take(PeerID peer) { return std::exchange(events[peer], {}); }

  std::map<PeerID, std::vector<std::string>> events;
  std::map<PeerID, std::size_t> queued;
  std::set<PeerID> paused;
  bool keepsQueued = false;

 private:
  void add(PeerID peer, std::string what) { events[peer].push_back(std::move(what)); }
};

std::string hello(std::string_view role, std::string_view pair, std::string_view link = {}) {
  JsonObject object{{"version", 1}, {"role", role}, {"pairID", pair}};
  if (!link.empty()) object.set("pairingLink", link);
  return json::write(object);
}
std::string lookUp(std::string_view code) {
  return json::write(JsonObject{{"version", 1}, {"role", "resolve"}, {"code", code}});
}
Bytes bytes(std::string text) {
  return std::make_shared<const std::string>(std::move(text));
}

using Events = std::vector<std::string>;

class RelayRoomsTest : public testing::Test {
 protected:
  Recorded seen;
  RelayRooms::Limits limits;
  std::optional<RelayRooms> made;
  Duration now = 1h;
  PeerID last = 0;

  RelayRooms& rooms() { return made ? *made : made.emplace(seen, limits); }
  PeerID join(std::string_view text, std::string address = "10.0.0.1") {
    rooms().opened(++last, std::move(address), now);
    rooms().receivedText(last, text, now);
    return last;
  }
  void pass(Duration time) {
    now += time;
    rooms().tick(now);
  }
  /// The code in the last message to the host.
  std::string codeOf(PeerID host) {
    const auto events = seen.take(host);
    const auto object = json::parseObject(events.empty() ? "" : events.back());
    return object ? json::textOr(*object, "code", "") : "";
  }
  /// The sentence of an error that ended the connection.
  std::string errorOf(PeerID peer) {
    const auto events = seen.take(peer);
    if (events.size() != 2 || events[1] != "close 1008") return "no error";
    return json::textOr(*json::parseObject(events[0]), "message", "");
  }
};

TEST_F(RelayRoomsTest, TellsBothEndsOfEachOtherAndPassesOnlyBetweenThem) {
  const auto early = join(hello("client", pairA));
  EXPECT_EQ(seen.take(early), (Events{clientReadyText(false)}));
  rooms().receivedBinary(early, bytes("lost: there is no host"), now);
  const auto host = join(hello("host", pairA));
  EXPECT_EQ(seen.take(host), (Events{hostReadyText(), peerCountText(1)}));
  EXPECT_EQ(seen.take(early), (Events{hostOnlineText()}));
  const auto late = join(hello("client", pairA));
  EXPECT_EQ(seen.take(late), (Events{clientReadyText(true)}));
  EXPECT_EQ(seen.take(host), (Events{peerCountText(2)}));
  const auto stranger = join(hello("client", pairB));
  seen.take(stranger);

  rooms().receivedBinary(host, bytes("news"), now);
  rooms().receivedBinary(late, bytes("command"), now);
  EXPECT_EQ(seen.take(early), (Events{"binary news"}));
  EXPECT_EQ(seen.take(late), (Events{"binary news"}));
  EXPECT_EQ(seen.take(host), (Events{"binary command"}));
  EXPECT_EQ(seen.take(stranger), Events{});

  rooms().closed(late);
  EXPECT_EQ(seen.take(host), (Events{peerCountText(1)}));
  rooms().closed(host);
  EXPECT_EQ(seen.take(early), (Events{hostOfflineText()}));
  rooms().closed(early);
  rooms().closed(stranger);
  EXPECT_EQ(rooms().pairCount(), 0U);
  EXPECT_EQ(rooms().peerCount(), 0U);
}

TEST_F(RelayRoomsTest, LetsAHostThatCameBackTakeThePlaceOfItsDeadConnection) {
  const auto dead = join(hello("host", pairA, linkA));
  const auto client = join(hello("client", pairA));
  seen.take(client);
  seen.take(dead);
  const auto host = join(hello("host", pairA, linkA));
  EXPECT_EQ(errorOf(dead), "The host has connected again from elsewhere.");
  EXPECT_EQ(seen.take(client), (Events{hostOnlineText()}));
  rooms().closed(dead);  // its end, reported late
  EXPECT_EQ(seen.take(client), Events{});
  rooms().receivedBinary(client, bytes("x"), now);
  EXPECT_EQ(seen.take(host).back(), "binary x");
}

TEST_F(RelayRoomsTest, GivesEachCodeOnceAndForTenMinutes) {
  const auto host = join(hello("host", pairA, linkA));
  const auto first = codeOf(host);
  EXPECT_EQ(first.size(), RelayRooms::codeLength);
  EXPECT_EQ(first.find_first_not_of(RelayRooms::codeAlphabet), first.npos);
  const auto user = join(lookUp(first));
  EXPECT_EQ(seen.take(user), (Events{pairingLinkText(linkA), "close 1000"}));
  const auto second = codeOf(host);
  EXPECT_NE(first, second);
  EXPECT_TRUE(errorOf(join(lookUp(first))).starts_with("This pairing code is not known."));

  pass(599s);
  EXPECT_EQ(seen.take(host), Events{});
  now += 1s;  // expired, also before the next tick
  EXPECT_TRUE(errorOf(join(lookUp(second))).starts_with("This pairing code is not known."));
  rooms().tick(now);
  const auto events = seen.take(host);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(json::integer(*json::parseObject(events[0]), "expiresIn"), 600);
  const auto third = json::textOr(*json::parseObject(events[0]), "code", "");
  rooms().closed(host);
  EXPECT_TRUE(errorOf(join(lookUp(third))).starts_with("This pairing code is not known."));
}

TEST_F(RelayRoomsTest, BoundsGuessesOfCodesByAddressAndInAll) {
  const auto host = join(hello("host", pairA, linkA), "10.0.0.9");
  const auto code = codeOf(host);
  int asked = 0;
  for (int count = 0; count < 1000; ++count) {
    now += 1ms;
    asked += errorOf(join(lookUp("22222222"), "10.0.0.1")).starts_with("This pairing code");
  }
  EXPECT_EQ(asked, 10);
  EXPECT_TRUE(errorOf(join(lookUp(code), "10.0.0.1")).starts_with("Too many wrong pairing codes"));
  // One customer's IPv6 addresses are one address.
  for (int count = 0; count < 20; ++count) {
    asked += errorOf(join(lookUp("22222222"), "2001:db8::" + std::to_string(count)))
                 .starts_with("This pairing code");
  }
  EXPECT_EQ(asked, 20);
  const auto user = join(lookUp(code), "10.0.0.2");
  EXPECT_EQ(seen.take(user).front(), pairingLinkText(linkA));
  pass(10min);
  EXPECT_TRUE(errorOf(join(lookUp("22222222"), "10.0.0.1")).starts_with("This pairing code"));

  pass(1min);
  for (int count = 0; count < 700; ++count) {
    join(lookUp("22222222"), "10.1." + std::to_string(count / 10) + ".1");
  }
  EXPECT_TRUE(errorOf(join(lookUp("22222222"), "10.2.0.1")).starts_with("Too many pairing codes"));
  pass(1min);
  EXPECT_TRUE(errorOf(join(lookUp("22222222"), "10.2.0.1")).starts_with("This pairing code"));
  pass(1h);
  EXPECT_LE(rooms().addresses().size(), 1U);  // the host's
}

TEST_F(RelayRoomsTest, RefusesWhatBreaksTheProtocolOrALimit) {
  limits.pairs = 1;
  limits.clientsPerPair = 2;
  const std::string tooLong(longestLink, 'x');
  const std::pair<std::string, std::string> cases[]{
      {"", "The relay expects a JSON object first."},
      {"[]", "The relay expects a JSON object first."},
      {"{}", "The relay speaks version 1 of its protocol only."},
      {R"({"version":1})", "The role must be host, client or resolve."},
      {hello("owner", pairA), "The role must be host, client or resolve."},
      {hello("client", "short"), "The pair ID is not valid."},
      {hello("client", std::string(65, 'A')), "The pair ID is not valid."},
      {hello("client", "AAAAAAAAAAAAAAA+/A"), "The pair ID is not valid."},
      {hello("host", pairA, "vantrell://" + tooLong), "The pairing link is not valid."},
      {hello("host", pairA, "no link"), "The pairing link is not valid."},
  };
  for (const auto& [text, sentence] : cases) EXPECT_EQ(errorOf(join(text)), sentence) << text;
  EXPECT_EQ(rooms().pairCount(), 0U);

  join(hello("client", pairA));
  join(hello("client", pairA));
  EXPECT_EQ(errorOf(join(hello("client", pairA))), "Too many clients are connected to this host.");
  EXPECT_TRUE(errorOf(join(hello("host", pairB))).starts_with("The relay serves too many pairs"));

  rooms().opened(90, "10.0.0.1", now);
  rooms().receivedBinary(90, bytes("x"), now);
  EXPECT_EQ(errorOf(90), "The relay expects a JSON object first.");
  rooms().opened(91, "10.0.0.1", now);
  pass(limits.helloTime);
  EXPECT_EQ(errorOf(91), "The relay expects a JSON object first.");
  EXPECT_EQ(rooms().peerCount(), 2U);
}

TEST_F(RelayRoomsTest, HoldsTheHostBackForASlowClientAndDropsOneThatStalls) {
  limits.highWater = 100;
  limits.lowWater = 20;
  limits.slowBytes = 50;
  const auto host = join(hello("host", pairA));
  const auto slow = join(hello("client", pairA));
  const auto quick = join(hello("client", pairA));
  seen.keepsQueued = true;
  rooms().receivedBinary(host, bytes(std::string(100, 'x')), now);
  seen.queued[quick] = 0;
  EXPECT_FALSE(seen.paused.contains(host));
  rooms().receivedBinary(host, bytes(std::string(100, 'x')), now);
  seen.queued[quick] = 0;
  EXPECT_TRUE(seen.paused.contains(host));
  pass(limits.slowTime - 1s);
  seen.queued[slow] -= 60;  // slowly, but it reads
  rooms().written(slow);
  pass(1s);
  EXPECT_TRUE(seen.paused.contains(host));
  pass(limits.slowTime - 1s);
  EXPECT_NE(seen.take(slow).back(), "drop");
  seen.queued[slow] -= 40;
  pass(1s);
  EXPECT_EQ(seen.take(slow), (Events{"drop"}));
  EXPECT_FALSE(seen.paused.contains(host));
  EXPECT_EQ(seen.take(host).back(), peerCountText(1));

  // Clients wait for a slow host in the same way, and go on when it has caught up.
  rooms().receivedBinary(quick, bytes(std::string(101, 'x')), now);
  EXPECT_TRUE(seen.paused.contains(quick));
  seen.queued[host] = 19;
  rooms().written(host);
  EXPECT_FALSE(seen.paused.contains(quick));
}

TEST_F(RelayRoomsTest, DropsTheLargestConnectionOfTheAddressThatHoldsMost) {
  limits.heldBytes = 1000;
  const auto mine = join(hello("client", pairA), "10.0.0.1");
  const auto one = join(hello("client", pairB), "10.0.0.2");
  const auto other = join(hello("client", pairB), "10.0.0.2");
  seen.queued = {{mine, 500}, {one, 250}, {other, 251}};
  pass(1s);
  EXPECT_EQ(seen.take(other).back(), "drop");
  EXPECT_EQ(rooms().peerCount(), 2U);
}

TEST(AddressLimits, CountConnectionsOfAnAddressAtATimeAndNewOnes) {
  AddressLimits limits({.connections = 2, .addresses = 3, .newConnections = 3});
  Duration now = 1h;
  for (int count = 0; count < 3; ++count) EXPECT_TRUE(limits.mayConnect("10.0.0.1", now));
  EXPECT_FALSE(limits.mayConnect("10.0.0.1", now));
  EXPECT_TRUE(limits.mayConnect("10.0.0.2", now));
  EXPECT_TRUE(limits.mayConnect("10.0.0.1", now + 200ms));
  limits.opened("::1", now);
  limits.opened("::2", now);
  EXPECT_FALSE(limits.hasRoom("::3"));
  limits.closed("::1");
  EXPECT_TRUE(limits.hasRoom("::3"));
  EXPECT_FALSE(limits.mayConnect("10.0.0.3", now));  // three addresses are remembered already
  EXPECT_TRUE(limits.mayConnect("10.0.0.3", now + 1min));
  EXPECT_EQ(networkOf("2001:db8:1:2:3:4:5:6"), "2001:db8:1:2::");
}

}  // namespace
}  // namespace vantrell::relay
