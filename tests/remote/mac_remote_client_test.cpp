// Which road a client takes, what it says when one breaks, and when it tries again. Host and relay
// are real sockets on this machine; time is virtual.
#include "remote/client/mac_remote_client.h"

#include <gmock/gmock.h>

#include "remote/scripted_remote.h"

namespace vantrell {
namespace {

using namespace std::chrono_literals;
using Kind = MacRemoteConnectionState::Kind;
using Type = RemoteMessageType;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

const std::string key(32, 'k');
const std::string online = R"({"type":"ready","hostOnline":true})";
const std::string offline = R"({"type":"ready","hostOnline":false})";

std::string words(const MacRemoteConnectionState& state) {
  switch (state.kind) {
    case Kind::disconnected: return "disconnected";
    case Kind::connecting: return "connecting";
    case Kind::waitingForHost: return "waiting";
    case Kind::connected: return state.route == MacRemoteRoute::lan ? "lan" : "relay";
    case Kind::reconnecting: return "again: " + state.message;
    case Kind::failed: return "failed: " + state.message;
  }
  return "";
}

class MacRemoteClientTest : public ::testing::Test {
 protected:
  MacRemoteClientTest() {
    host_.listen();
    client_->onStateChange = [this](const auto& state) { states_.push_back(words(state)); };
    client_->onReady = [this] {
      states_.push_back("ready");
      client_->send(RemoteEnvelope::make(Type::hello));
    };
    client_->onMessage = [this](const auto& envelope) { types_.push_back(envelope.type); };
  }

  enum class Roads { lan, relay, both };
  /// Where the relay is the only road, the host's own port says nothing.
  MacRemotePairing pairing(Roads roads) const {
    MacRemotePairing made{
        .host = "127.0.0.1", .port = host_.port(), .keyData = key, .pairID = "pair-1234567890abc"};
    if (roads == Roads::relay) made.port = silent_.port();
    if (roads != Roads::lan) made.relayURL = Url::parse(relay_.url());
    return made;
  }
  bool untilState(const std::string& state) {
    return main_.runUntil([&] { return !states_.empty() && states_.back() == state; });
  }
  /// Chosen, and the first message is there.
  bool untilReady(const std::vector<RemoteEnvelope>& received) {
    return main_.runUntil([&] { return states_.back() == "ready" && !received.empty(); });
  }
  void connectRelay() {
    relay_.answers = {online};
    client_->start(pairing(Roads::relay));
    main_.advance(MacRemoteClient::relayDelay);
    ASSERT_TRUE(untilReady(relay_.received));
    states_.clear();
  }

  ManualMainQueue main_;
  BackgroundPool pool_{2};
  SilentPort silent_;
  ScriptedHost host_{main_, key};
  ScriptedRelay relay_{main_, pool_, key};
  std::vector<std::string> states_;
  std::vector<std::string> types_;
  std::shared_ptr<MacRemoteClient> client_ = MacRemoteClient::make(main_, pool_);
};

TEST_F(MacRemoteClientTest, AHostThatAnswersItselfNeedsNoRelay) {
  client_->start(pairing(Roads::both));
  ASSERT_TRUE(untilReady(host_.received));
  EXPECT_THAT(states_, ElementsAre("connecting", "lan", "ready"));
  EXPECT_EQ(host_.received[0].type, "hello");
  main_.advance(1h);
  EXPECT_TRUE(relay_.greetings.empty());
  // Messages of any size come whole and in order, however they are cut.
  auto large = RemoteEnvelope::make(Type::error);
  large.text = std::string(9 << 20, 'x');
  for (int i = 0; i < 3; ++i) host_.send(large);
  const auto frame = *RemoteCrypto(key).seal(encode(RemoteEnvelope::make(Type::ack)));
  for (const auto& piece : {frame.substr(0, 2), frame.substr(2, 9), frame.substr(11)}) {
    host_.sendBytes(piece);
  }
  ASSERT_TRUE(main_.runUntil([&] { return types_.size() == 4; }));
  EXPECT_THAT(types_, ElementsAre("error", "error", "error", "ack"));
  client_->stop();
  EXPECT_EQ(states_.back(), "disconnected");
}

TEST_F(MacRemoteClientTest, TheRelayTakesOverAfterItsDelay) {
  relay_.answers = {online};
  client_->start(pairing(Roads::relay));
  main_.advance(MacRemoteClient::relayDelay - 1ms);
  EXPECT_FALSE(main_.runUntil([&] { return !relay_.greetings.empty(); }, 20ms));
  main_.advance(1ms);
  ASSERT_TRUE(untilReady(relay_.received));
  EXPECT_THAT(states_, ElementsAre("connecting", "relay", "ready"));
  EXPECT_THAT(relay_.greetings,
              ElementsAre(R"({"version":1,"role":"client","pairID":"pair-1234567890abc"})"));
  relay_.send(RemoteEnvelope::make(Type::ack));
  relay_.say(R"({"type":"host_offline"})");
  ASSERT_TRUE(untilState("waiting"));
  EXPECT_THAT(types_, ElementsAre("ack"));
  client_->send(RemoteEnvelope::make(Type::refresh));  // lost: the host is not there
  main_.advance(24h);
  EXPECT_EQ(states_.back(), "waiting");
  relay_.say(R"({"type":"news"})");
  relay_.say(R"({"type":"host_online"})");
  ASSERT_TRUE(main_.runUntil([&] { return relay_.received.size() == 2; }));
  EXPECT_EQ(relay_.received[1].type, "hello");
  client_->stop();
  ASSERT_TRUE(main_.runUntil([&] { return relay_.closeCode.has_value(); }));
  EXPECT_EQ(relay_.closeCode, 1000);
  EXPECT_EQ(states_.back(), "disconnected");
}

TEST_F(MacRemoteClientTest, ARefusedDirectConnectionLeavesToTheRelayAtOnce) {
  host_.close();
  relay_.answers = {offline};
  client_->start(pairing(Roads::both));
  ASSERT_TRUE(untilState("waiting"));  // no time has passed
  EXPECT_THAT(states_, ElementsAre("connecting", "waiting"));
}

TEST_F(MacRemoteClientTest, ABrokenDirectConnectionFallsToTheRelay) {
  relay_.answers = {online};
  const auto wrongKey = *RemoteCrypto(std::string(32, 'w')).seal("{}");
  const std::string endings[] = {"", wrongKey, std::string(4, '\xff'),
                                 std::string("\0\0\0\4abcd", 8)};
  for (const auto& bytes : endings) {
    host_.received.clear();
    relay_.received.clear();
    client_->start(pairing(Roads::both));
    ASSERT_TRUE(untilReady(host_.received));
    states_.clear();
    if (bytes.empty()) host_.hangUp();
    host_.sendBytes(bytes);
    host_.send(RemoteEnvelope::make(Type::ack));  // after a bad frame nothing is read
    ASSERT_TRUE(main_.runUntil([&] { return !relay_.received.empty(); }));
    EXPECT_THAT(states_, ElementsAre("relay", "ready"));
    EXPECT_THAT(types_, ElementsAre());
  }
}

TEST_F(MacRemoteClientTest, SaysWhyThereIsNoRoad) {
  client_->start(pairing(Roads::lan));
  ASSERT_TRUE(untilReady(host_.received));
  host_.hangUp();
  ASSERT_TRUE(untilState("again: The direct connection closed."));
  host_.close();
  main_.advance(1s);
  ASSERT_TRUE(main_.runUntil([&] { return states_.back().starts_with("again: No connection"); }));
  states_.clear();
  auto silent = pairing(Roads::relay);
  silent.relayURL = std::nullopt;
  client_->start(silent);
  main_.advance(MacRemoteClient::relayDelay);
  EXPECT_THAT(states_, ElementsAre("connecting",
                                   "again: The pairing link does not include an automatic relay."));
}

TEST_F(MacRemoteClientTest, ARelayThatFailsIsTriedAgain) {
  const auto wrongKey = *RemoteCrypto(std::string(32, 'w')).seal("{}");
  const auto frame = *RemoteCrypto(key).seal(encode(RemoteEnvelope::make(Type::ack)));
  const auto genuine = frame.substr(RemoteCrypto::prefixSize);
  auto changed = genuine;
  changed[20] ^= 1;
  const std::pair<std::function<void()>, std::string> failures[] = {
      {[&] { relay_.sendBytes(genuine.substr(0, genuine.size() - 1)); }, ""},
      {[&] { relay_.sendBytes(changed); }, ""},
      {[&] { relay_.sendBytes(frame); }, ""},
      {[&] { relay_.sendBytes(genuine.substr(0, 28)); }, ""},
      {[&] { relay_.say(R"({"type":"error","message":"Too many."})"); }, "Too many."},
      {[&] { relay_.say(R"({"type":"error"})"); }, "The relay rejected the connection."},
      {[&] { relay_.say("hello"); }, "The relay's message cannot be read."},
      {[&] { relay_.sendBytes("short"); }, "The encrypted remote message is invalid."},
      {[&] { relay_.sendBytes(wrongKey.substr(4)); }, ""},
      {[&] { relay_.hangUp(1001, "Going away."); }, "Going away."},
      {[&] { relay_.hangUp(1001, ""); }, "The relay connection closed."},
      {[&] { relay_.sendBytes(std::string((16 << 20) + 1, 'x')); }, ""},
  };
  for (const auto& [fail, message] : failures) {
    relay_.received.clear();
    connectRelay();
    fail();
    ASSERT_TRUE(main_.runUntil([&] { return !states_.empty(); }));
    EXPECT_THAT(states_[0], ::testing::StartsWith("again: " + message));
    EXPECT_GT(states_[0].size(), 7u);
    client_->send(RemoteEnvelope::make(Type::refresh));  // lost
    main_.advance(1s - 1ms);
    EXPECT_EQ(states_.size(), 1u);
    main_.advance(1ms);
    EXPECT_EQ(states_.back(), "connecting");
    EXPECT_EQ(relay_.received.size(), 1u);
  }
}

TEST_F(MacRemoteClientTest, WaitsLongerAfterEachFailure) {
  client_->start(pairing(Roads::relay));  // the relay never answers the greeting
  for (const int delay : {1, 2, 4, 8, 16, 16}) {
    const std::size_t greetings = relay_.greetings.size();  // it may come within the advance
    main_.advance(MacRemoteClient::relayDelay);
    ASSERT_TRUE(main_.runUntil([&] { return relay_.greetings.size() > greetings; }));
    states_.clear();
    main_.advance(MacRemoteClient::relayLimit - 1ms);
    EXPECT_TRUE(states_.empty());
    main_.advance(1ms);
    EXPECT_THAT(states_,
                ElementsAre("again: The internet relay did not respond within 15 seconds."));
    main_.advance(std::chrono::seconds(delay) - 1ms);
    EXPECT_EQ(states_.size(), 1u);
    main_.advance(1ms);
    EXPECT_EQ(states_.back(), "connecting");
  }
  client_->stop();
  states_.clear();
  main_.advance(1h);
  EXPECT_TRUE(states_.empty());
  EXPECT_FALSE(main_.hasTimers());
}

TEST_F(MacRemoteClientTest, MayBeReleasedAndStartedFromItsCallbacks) {
  client_->onReady = [this] { client_->start(pairing(Roads::both)); };
  client_->start(pairing(Roads::both));
  ASSERT_TRUE(main_.runUntil([&] { return host_.connections >= 3; }));
  client_->onReady = [this] { client_ = nullptr; };
  ASSERT_TRUE(main_.runUntil([&] { return !client_; }));
  EXPECT_FALSE(main_.hasTimers());
}

}  // namespace
}  // namespace vantrell
