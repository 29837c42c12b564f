// Links and codes: what a host makes, its client reads, and what is no link is refused with the
// reason.
#include "remote/protocol/remote_pairing.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "remote/protocol/remote_crypto.h"

namespace vantrell {
namespace {

using Error = MacRemotePairingError;

// The 32 bytes 0 to 31.
constexpr std::string_view key = "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8";

TEST(MacRemotePairingTest, ReadsWhatAHostMakes) {
  // In Base64 this key has both characters that URLs write otherwise.
  const std::string keyData = "\xfb\xff" + std::string(30, '\xfe');
  const PairingLinkContent content{.host = "fe80::1%eth0",
                                   .keyData = keyData,
                                   .relayURL = "wss://relay.example/remote/connect?a=b&c",
                                   .name = "Zoë's machine & more+"};
  const auto link = makePairingLink(content);
  EXPECT_TRUE(link.starts_with("vantrell://pair?host=fe80::1%25eth0&port=43765&key=-__-_v7-"))
      << link;
  EXPECT_TRUE(link.ends_with("&name=Zo%C3%AB%27s%20machine%20%26%20more%2B")) << link;
  const auto pairing = MacRemotePairing::parse(" " + link + "\n");
  ASSERT_TRUE(pairing);
  EXPECT_EQ(pairing->host, content.host);
  EXPECT_EQ(pairing->port, 43765);
  EXPECT_EQ(pairing->keyData, keyData);
  EXPECT_EQ(pairing->pairID, RemoteCrypto::pairID(keyData));
  EXPECT_EQ(pairing->relayURL->text(), content.relayURL);
  EXPECT_EQ(pairing->name, content.name);
  EXPECT_EQ(pairing->link, link);

  const auto plain = MacRemotePairing::parse(makePairingLink({.host = "h", .keyData = keyData}));
  ASSERT_TRUE(plain);
  EXPECT_FALSE(plain->relayURL);
  EXPECT_EQ(plain->name, "My Mac");
}

TEST(MacRemotePairingTest, AcceptsWhatOtherHostsWrite) {
  const auto pairing = MacRemotePairing::parse(fmt::format(
      "LARKMOOR://PAIR?name&later=1&port=65535&host=%20h%20&relay=HTTPS://r.example:8443/x&key={}=",
      key));
  ASSERT_TRUE(pairing);
  EXPECT_EQ(pairing->host, "h");
  EXPECT_EQ(pairing->port, 65535);
  EXPECT_EQ(pairing->name, "h");
  EXPECT_EQ(pairing->pairID, "Yw3NKWbEM2aRElRIu7JbTw");
  EXPECT_EQ(pairing->relayURL->text(), "wss://r.example:8443/x");
}

TEST(MacRemotePairingTest, SaysWhatIsWrong) {
  const auto link = [](std::string_view rest) { return fmt::format("vantrell://pair?{}", rest); };
  const auto withKey = [&](std::string_view rest) {
    return link(fmt::format("host=h&port=1&key={}&{}", key, rest));
  };
  const auto keyOf = [&](std::size_t size) {
    return makePairingLink({.host = "h", .keyData = std::string(size, 'k')});
  };
  const std::pair<std::string, std::optional<Error>> cases[] = {
      {withKey(""), std::nullopt},
      {"", Error::invalidLink},
      {"ABCD2345", Error::invalidLink},
      {"https://pair?host=h", Error::invalidLink},
      {"vantrell://connect?host=h", Error::invalidLink},
      {"vantrell:pair?host=h", Error::invalidLink},
      {withKey("host=other"), Error::invalidLink},
      {withKey("name=a%0Ab"), Error::invalidLink},
      {withKey("name=%FF"), Error::invalidLink},
      {link("port=1"), Error::missingHost},
      {link("host=%20&port=1"), Error::missingHost},
      {link("host=h"), Error::invalidPort},
      {link("host=h&port=0"), Error::invalidPort},
      {link("host=h&port=65536"), Error::invalidPort},
      {link("host=h&port=1x"), Error::invalidPort},
      {link("host=h&port=1"), Error::invalidKey},
      {link("host=h&port=1&key=!"), Error::invalidKey},
      {keyOf(31), Error::invalidKey},
      {keyOf(33), Error::invalidKey},
      {withKey("pair="), Error::invalidPairID},
      {withKey("pair=" + std::string(15, 'a')), Error::invalidPairID},
      {withKey("pair=" + std::string(16, 'a')), std::nullopt},
      {withKey("pair=" + std::string(65, 'a')), Error::invalidPairID},
      {withKey("pair=" + std::string(16, '.')), Error::invalidPairID},
      {withKey("relay="), std::nullopt},
      {withKey("relay=http://r.example"), Error::invalidRelay},
      {withKey("relay=ws://r.example"), Error::invalidRelay},
      {withKey("relay=https://"), Error::invalidRelay},
      {withKey("relay=r.example"), Error::invalidRelay},
  };
  for (const auto& [text, error] : cases) {
    const auto pairing = MacRemotePairing::parse(text);
    EXPECT_EQ(pairing ? std::nullopt : std::optional(pairing.error()), error) << text;
  }
}

TEST(RemotePairingCodeTest, AcceptsWhatPeopleType) {
  using RemotePairingCode::normalize;
  for (const auto* text : {"ABCD2345", "abcd-2345", " ab cd\t23-4 5\n", "\u00a0abcd\u20032345"}) {
    EXPECT_EQ(normalize(text), "ABCD2345") << text;
  }
  for (const auto* text : {"", "ABCD234", "ABCD23456", "ABCD234O", "ABCD2340", "ABCD234I",
                           "ABCD2341", "ABCD234L", "ABCD234\u017f", "vantrell://pair"}) {
    EXPECT_FALSE(normalize(text)) << text;
  }
}

}  // namespace
}  // namespace vantrell
