// What a relay may say to a host, and when the host comes back. The relay is a real WebSocket
// server on this machine; the client is reached through the host's server, as it is in use.
#include <fmt/format.h>
#include <gmock/gmock.h>

#include "platform/queues/manual_main_queue.h"
#include "platform/sockets/web_socket.h"
#include "remote/host/remote_host_server.h"
#include "remote/protocol/frame_reader.h"

namespace vantrell {
namespace {

using Phase = RemoteRelayState::Phase;
const std::string key(32, 'k');

std::string bodyOf(std::string_view id, std::string_view keyData = key) {
  auto envelope = RemoteEnvelope::make(RemoteMessageType::hello);
  envelope.id = id;
  return RemoteCrypto(keyData).seal(encode(envelope))->substr(RemoteCrypto::prefixSize);
}

class RemoteRelayClientTest : public ::testing::Test {
 protected:
  RemoteRelayClientTest() {
    listener_->start(queue_,
                     {.onRequest = [](const WebSocketRequest&) { return WebSocketLimits(); },
                      .onOpen = [this](std::shared_ptr<WebSocket> socket,
                                       const WebSocketRequest&) { serve(socket); }});
    host_.onRelayStateChange = [this](const RemoteRelayState& state) { state_ = state; };
    host_.onClientCountChange = [this](std::int64_t count) { count_ = count; };
    host_.onMessage = [this](const RemoteEnvelope& envelope) { ids_.push_back(envelope.id); };
    host_.onPairingCodeChange = [this](std::optional<std::string> code,
                                       std::optional<std::int64_t> expiresIn) {
      code_ = code ? fmt::format("{} {}", *code, expiresIn.value_or(0)) : "none";
    };
  }
  ~RemoteRelayClientTest() override {
    host_.stop();
    listener_->close();
  }
  /// On the relay's queue.
  void serve(const std::shared_ptr<WebSocket>& socket) {
    socket->start({.onText =
                       [this, socket](const std::string& text) {
                         main_.post([this, socket, text] {
                           socket_ = socket;
                           hellos_.push_back(text);
                         });
                       },
                   .onBinary =
                       [this](const std::string& body) {
                         RemoteCrypto crypto(key);
                         const auto envelope = openEnvelope(crypto, body);
                         main_.post([this, id = envelope ? envelope->id : "unread"] {
                           received_.push_back(id);
                         });
                       },
                   .onEnd =
                       [this](const WebSocketEnd& end) {
                         main_.post([this, code = end.closeCode.value_or(0)] { ended_ = code; });
                       }});
  }
  bool awaitHello() {
    const bool isThere = main_.runUntil([&] { return !hellos_.empty(); });
    if (!isThere) return false;
    hello_ = hellos_.front();
    hellos_.erase(hellos_.begin());
    return true;
  }
  bool awaitState(Phase phase) {
    return main_.runUntil([&] { return state_.phase == phase; });
  }
  void say(const std::string& text) {
    queue_.post([socket = socket_, text] { socket->sendText(text); });
  }
  void sayBinary(const std::string& body) {
    queue_.post([socket = socket_, body] { socket->sendBinary(body); });
  }
  void start() { host_.start(key, "vantrell://pair?x", 0); }
  void connect() {
    start();
    ASSERT_TRUE(awaitHello());
    say(R"({"type":"ready"})");
    ASSERT_TRUE(awaitState(Phase::connected));
  }

  ManualMainQueue main_;
  BackgroundPool pool_{2};
  SerialQueue queue_{pool_, "relay"};
  std::shared_ptr<WebSocketListener> listener_ = *WebSocketListener::bind({});
  std::shared_ptr<WebSocket> socket_;  // the last that said hello
  std::vector<std::string> hellos_;
  std::string hello_;  // the last that was awaited
  std::vector<std::string> received_;
  int ended_ = -1;
  RemoteRelayState state_;
  std::int64_t count_ = -1;
  std::vector<std::string> ids_;
  std::string code_;
  RemoteHostServer host_{
      main_,
      pool_,
      {.address = "127.0.0.1",
       .relayURL = *Url::parse(fmt::format("ws://127.0.0.1:{}/remote/connect", listener_->port())),
       .trustedCertificates = {}}};
};

TEST_F(RemoteRelayClientTest, CarriesMessagesBothWaysAndSaysWhatTheRelayKnows) {
  start();
  ASSERT_TRUE(awaitHello());
  EXPECT_EQ(hello_, R"({"version":1,"role":"host","pairID":")" + RemoteCrypto::pairID(key) +
                        R"(","pairingLink":"vantrell://pair?x"})");
  host_.send(RemoteEnvelope::make(RemoteMessageType::error));  // lost: the relay is not ready
  host_.update(RemoteSnapshot());
  bool isTaken = false;
  host_.send(RemoteEnvelope::make(RemoteMessageType::error), [&] { isTaken = true; });
  ASSERT_TRUE(main_.runUntil([&] { return isTaken; }));
  say(R"({"type":"ready"})");
  ASSERT_TRUE(main_.runUntil([&] { return received_.size() == 1; }));  // the snapshot
  say(R"({"type":"pairing_code","code":"ABCD2345","expiresIn":600})");
  for (const auto* noise : {"[1]", R"({"type":5})", R"({"type":"news"})"}) say(noise);
  sayBinary(bodyOf("a"));
  sayBinary(bodyOf("a"));
  sayBinary(bodyOf("b"));
  say(R"({"type":"peer_count","count":3})");
  ASSERT_TRUE(main_.runUntil([&] { return ids_.size() == 2 && count_ == 3; }));
  EXPECT_THAT(ids_, ::testing::ElementsAre("a", "b"));
  EXPECT_EQ(code_, "ABCD2345 600");
  auto reply = RemoteEnvelope::make(RemoteMessageType::ack);
  reply.id = "reply";
  host_.send(reply);
  ASSERT_TRUE(main_.runUntil([&] { return received_.back() == "reply"; }));
  say(R"({"type":"peer_count"})");
  ASSERT_TRUE(main_.runUntil([&] { return count_ == 0; }));
  host_.stop();
  ASSERT_TRUE(main_.runUntil([&] { return ended_ == 1000; }));
  ASSERT_TRUE(awaitState(Phase::disabled));
  EXPECT_EQ(code_, "none");
}

TEST_F(RemoteRelayClientTest, EveryFailureEndsTheConnectionAndTriesAgainASecondLater) {
  enum class How { text, binary, close };
  struct Failure {
    How how;
    std::string message;
    std::string reason;
  };
  const Failure failures[]{
      {How::text, R"({"type":"error","message":"Too many hosts."})", "Too many hosts."},
      {How::text, R"({"type":"error"})", "The relay rejected the connection."},
      {How::text, "hello", "The relay's message cannot be read"},
      {How::binary, bodyOf("a", std::string(32, 'w')), "The remote message does not open"},
      {How::close, "", "Connection closed."},
      {How::close, "for lunch", "for lunch"},
  };
  connect();
  for (const auto& [how, message, reason] : failures) {
    say(R"({"type":"pairing_code","code":"ABCD2345"})");
    ASSERT_TRUE(main_.runUntil([&] { return code_ == "ABCD2345 0"; }));
    switch (how) {
      case How::text: say(message); break;
      case How::binary: sayBinary(message); break;
      case How::close: queue_.post([socket = socket_, why = message] { socket->close(1008, why); });
    }
    ASSERT_TRUE(awaitState(Phase::waiting)) << reason;
    EXPECT_TRUE(state_.message.starts_with(reason)) << state_.message;
    EXPECT_EQ(code_, "none");
    main_.advance(std::chrono::milliseconds(999));
    EXPECT_EQ(state_.phase, Phase::waiting);
    main_.advance(std::chrono::milliseconds(1));
    ASSERT_TRUE(awaitHello());
    EXPECT_EQ(state_.phase, Phase::connecting);
    say(R"({"type":"ready"})");
    ASSERT_TRUE(awaitState(Phase::connected));
  }
  EXPECT_THAT(ids_, ::testing::IsEmpty());
}

TEST_F(RemoteRelayClientTest, ASilentRelayIsGivenUpAndTriedLessAndLessOften) {
  start();
  for (const int delay : {1, 2, 4, 8, 16, 16, 16}) {
    ASSERT_TRUE(awaitHello());
    main_.advance(std::chrono::milliseconds(14'999));
    EXPECT_EQ(state_.phase, Phase::connecting);
    main_.advance(std::chrono::milliseconds(1));
    EXPECT_EQ(state_.phase, Phase::waiting);
    EXPECT_EQ(state_.message, "The internet relay did not respond within 15 seconds.");
    main_.advance(std::chrono::seconds(delay) - std::chrono::milliseconds(1));
    EXPECT_EQ(state_.phase, Phase::waiting);
    main_.advance(std::chrono::milliseconds(1));
  }
  ASSERT_TRUE(awaitHello());
  EXPECT_EQ(ended_, 1001);
}

TEST_F(RemoteRelayClientTest, ANewKeyTakesNothingThatTheOldOneSealed) {
  connect();
  sayBinary(bodyOf("old"));
  host_.start(std::string(32, 'n'), "vantrell://pair?y", 0);
  ASSERT_TRUE(awaitHello());
  EXPECT_TRUE(hello_.contains("pair?y"));
  sayBinary(bodyOf("again"));
  ASSERT_TRUE(awaitState(Phase::waiting));
  EXPECT_THAT(ids_, ::testing::IsEmpty());
}

}  // namespace
}  // namespace vantrell
