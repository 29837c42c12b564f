// A host over real sockets: what clients see, and what someone without the key can do to it.
#include "remote/host/remote_host_server.h"

#include <arpa/inet.h>
#include <atomic>
#include <gmock/gmock.h>
#include <sys/socket.h>

#include "platform/files/descriptor.h"
#include "platform/queues/manual_main_queue.h"
#include "platform/sockets/tcp.h"
#include "remote/host/recent_ids.h"
#include "remote/protocol/frame_reader.h"

namespace vantrell {
namespace {

using Phase = RemoteHostState::Phase;
const std::string key(32, 'k');

std::string frameOf(std::string_view id, std::string_view keyData = key, int version = 1) {
  auto envelope = RemoteEnvelope::make(RemoteMessageType::hello);
  envelope.id = id;
  envelope.version = version;
  return *RemoteCrypto(keyData).seal(encode(envelope));
}

/// Waits for bytes, and in no case longer than 10 seconds.
class Client {
 public:
  explicit Client(std::uint16_t port, int receiveBuffer = 0)
      : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const timeval limit{10, 0};
    ::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    if (receiveBuffer > 0) {
      ::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    }
    sockaddr_in to{.sin_family = AF_INET, .sin_port = htons(port), .sin_addr = {}, .sin_zero = {}};
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::connect(socket_.get(), reinterpret_cast<sockaddr*>(&to), sizeof to), 0);
  }
  void write(std::string_view bytes) {
    std::ignore = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }
  /// nullopt at the end of the connection.
  std::optional<RemoteEnvelope> next() {
    for (;;) {
      auto message = reader_.next();
      EXPECT_TRUE(message);
      if (!message || *message) return message ? std::move(*message) : std::nullopt;
      std::string bytes(65'536, '\0');
      const auto count = ::recv(socket_.get(), bytes.data(), bytes.size(), 0);
      EXPECT_FALSE(count < 0 && errno == EAGAIN) << "nothing came";
      if (count <= 0) return std::nullopt;
      reader_.append(std::string_view(bytes).substr(0, static_cast<std::size_t>(count)));
    }
  }
  bool hasEnded() { return !next(); }
  std::string nextID() {
    const auto message = next();
    return message ? message->id : "end";
  }

 private:
  Descriptor socket_;
  FrameReader reader_{key};
};

class RemoteHostServerTest : public ::testing::Test {
 protected:
  RemoteHostServerTest() {
    server_.onStateChange = [this](const RemoteHostState& state) { state_ = state; };
    server_.onClientCountChange = [this](std::int64_t count) { count_ = count; };
    server_.onMessage = [this](const RemoteEnvelope& envelope) { ids_.push_back(envelope.id); };
  }
  void start(const std::string& keyData = key) {
    server_.start(keyData, "vantrell://pair?", 0);
    state_ = {};
    ASSERT_TRUE(main_.runUntil([&] { return state_.phase == Phase::listening; })) << state_.message;
  }
  bool awaitCount(std::int64_t count) {
    return main_.runUntil([&] { return count_ == count; });
  }
  bool awaitMessages(std::size_t count) {
    return main_.runUntil([&] { return ids_.size() >= count; });
  }
  void update(std::size_t bytes = 0) {
    server_.update([this, bytes] {
      ++encoded_;
      RemoteSnapshot snapshot;
      snapshot.hostName = std::to_string(encoded_) + std::string(bytes, 'x');
      return encodeSnapshot(snapshot);
    });
  }
  void sendText(std::size_t bytes) {
    auto envelope = RemoteEnvelope::make(RemoteMessageType::error);
    envelope.text = std::string(bytes, 'x');
    server_.send(std::move(envelope), [this] { ++taken_; });
  }

  ManualMainQueue main_;
  BackgroundPool pool_{1};
  std::atomic<int> encoded_ = 0;
  int taken_ = 0;
  RemoteHostState state_;
  std::int64_t count_ = -1;
  std::vector<std::string> ids_;
  RemoteHostServer server_{
      main_, pool_, {.address = "127.0.0.1", .relayURL = {}, .trustedCertificates = {}}};
};

TEST_F(RemoteHostServerTest, GivesEveryClientTheLatestSnapshotEncodedOnce) {
  update();
  start();
  EXPECT_EQ(state_.label(), "Available on port " + std::to_string(state_.port));
  update();
  Client first(state_.port);
  Client second(state_.port);
  const auto snapshot = first.next();
  ASSERT_TRUE(snapshot && snapshot->snapshot);
  EXPECT_EQ(snapshot->snapshot->hostName, "1");
  EXPECT_EQ(second.nextID(), snapshot->id);
  ASSERT_TRUE(awaitCount(2));
  update();
  const auto later = first.nextID();
  EXPECT_NE(later, snapshot->id);
  EXPECT_EQ(second.nextID(), later);
  EXPECT_EQ(encoded_, 2);

  start();
  EXPECT_TRUE(first.hasEnded());
  EXPECT_EQ(Client(state_.port).nextID(), later);
}

TEST_F(RemoteHostServerTest, HandsOutEachMessageOnceWhoeverSendsIt) {
  start();
  Client first(state_.port);
  Client second(state_.port);
  const auto split = frameOf("a");
  first.write(split.substr(0, 3));
  first.write(split.substr(3) + frameOf("v", key, 2) + frameOf("b"));
  ASSERT_TRUE(awaitMessages(2));
  second.write(frameOf("a") + split + frameOf("v") + frameOf("c"));
  ASSERT_TRUE(awaitMessages(4));
  EXPECT_THAT(ids_, ::testing::ElementsAre("a", "b", "v", "c"));
}

TEST_F(RemoteHostServerTest, EndsAConnectionWithAFrameThatDoesNotOpenAndNoOther) {
  start();
  Client good(state_.port);
  good.write(frameOf("good"));
  ASSERT_TRUE(awaitMessages(1));
  auto flipped = frameOf("flipped");
  flipped.back() ^= 1;
  using namespace std::string_literals;
  const std::string bad[]{frameOf("x", std::string(32, 'w')),
                          flipped,
                          "\0\0\0\0"s,
                          "\1\0\0\1"s,  // 16 MiB and a byte
                          "\0\0\0\5short"s,
                          "GET / HTTP/1.1\r\n\r\n",
                          *RemoteCrypto(key).seal("{\"version\":1}")};
  for (const auto& bytes : bad) {
    Client client(state_.port);
    ASSERT_TRUE(awaitCount(2));
    client.write(bytes + frameOf("after"));
    EXPECT_TRUE(client.hasEnded()) << bytes;
    ASSERT_TRUE(awaitCount(1));
  }
  good.write(frameOf("still"));
  ASSERT_TRUE(awaitMessages(2));
  EXPECT_THAT(ids_, ::testing::ElementsAre("good", "still"));
}

TEST_F(RemoteHostServerTest, ANewKeyEndsEveryOldClientAndWhatItSentBefore) {
  start();
  Client old(state_.port);
  ASSERT_TRUE(awaitCount(1));
  old.write(frameOf("old"));
  server_.start(std::string(32, 'n'), "vantrell://pair?", 0);
  EXPECT_TRUE(old.hasEnded());
  ASSERT_TRUE(main_.runUntil([&] { return count_ == 0 && state_.phase == Phase::listening; }));
  EXPECT_THAT(ids_, ::testing::IsEmpty());
  Client again(state_.port);
  again.write(frameOf("again"));
  EXPECT_TRUE(again.hasEnded());
  server_.stop();
  ASSERT_TRUE(main_.runUntil([&] { return state_.phase == Phase::disabled; }));
  EXPECT_THAT(ids_, ::testing::IsEmpty());
}

TEST_F(RemoteHostServerTest, SkipsSnapshotsForASlowClientAndDropsOneThatReadsNothing) {
  start();
  Client slow(state_.port, 4096);
  Client quick(state_.port);
  ASSERT_TRUE(awaitCount(2));
  constexpr int updates = 20;
  for (int turn = 1; turn <= updates; ++turn) {
    update(1 << 20);
    EXPECT_TRUE(quick.next());
  }
  int received = 0;
  std::string last;
  while (!last.starts_with(std::to_string(updates) + "x")) {
    const auto message = slow.next();
    ASSERT_TRUE(message && message->snapshot);
    last = message->snapshot->hostName;
    ++received;
  }
  EXPECT_LT(received, updates);

  sendText(16);
  ASSERT_TRUE(main_.runUntil([&] { return taken_ == 1; }));
  sendText(12 << 20);
  EXPECT_TRUE(quick.next() && quick.next());
  EXPECT_EQ(taken_, 1);  // the slow one has not
  main_.advance(2 * RemoteHostServer::stallLimit);
  EXPECT_TRUE(awaitCount(1));
  EXPECT_TRUE(main_.runUntil([&] { return taken_ == 2; }));
}

TEST_F(RemoteHostServerTest, BoundsWhatWaitsForOneClient) {
  start();
  Client client(state_.port, 4096);
  ASSERT_TRUE(awaitCount(1));
  for (int turn = 0; turn < 8; ++turn) sendText(12 << 20);
  EXPECT_TRUE(awaitCount(0));
  EXPECT_TRUE(main_.runUntil([&] { return taken_ == 8; }));
}

TEST_F(RemoteHostServerTest, TheOldestSilentConnectionGivesWay) {
  start();
  Client good(state_.port);
  good.write(frameOf("good"));
  ASSERT_TRUE(awaitMessages(1));
  std::vector<std::unique_ptr<Client>> silent;
  for (std::size_t count = 1; count < RemoteHostServer::mostConnections; ++count) {
    silent.push_back(std::make_unique<Client>(state_.port));
  }
  ASSERT_TRUE(awaitCount(RemoteHostServer::mostConnections));
  Client late(state_.port);
  EXPECT_TRUE(silent.front()->hasEnded());
  // Frames of 16 MiB that never end hold memory only up to the bound.
  const std::string part = std::string("\1\0\0\0", 4) + std::string(8 << 20, 'x');
  for (std::size_t index = 1; index <= 40; ++index) silent[index]->write(part);
  EXPECT_TRUE(main_.runUntil([&] { return count_ < 60; }));
  late.write(frameOf("late"));
  good.write(frameOf("still"));
  EXPECT_TRUE(awaitMessages(3));
}

TEST_F(RemoteHostServerTest, SaysWhyItCannotStart) {
  server_.start("short", "", 0);
  ASSERT_TRUE(main_.runUntil([&] { return state_.phase == Phase::failed; }));
  EXPECT_EQ(state_.message, "Could not create a valid pairing key.");
  EXPECT_EQ(state_.label(), "Needs attention");
  const auto other = *TcpListener::bind("127.0.0.1", 0);
  server_.start(key, "", other->port());
  ASSERT_TRUE(main_.runUntil([&] { return state_.message.contains("in use"); })) << state_.message;
}

TEST(RecentIDs, ForgetsTheOldestInOneGo) {
  RecentIDs ids(2048, 1024);
  for (int id = 0; id <= 2048; ++id) EXPECT_TRUE(ids.insert(std::to_string(id)));
  EXPECT_FALSE(ids.insert("1025"));
  EXPECT_TRUE(ids.insert("1024"));
}

}  // namespace
}  // namespace vantrell
