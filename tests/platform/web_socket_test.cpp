#include "platform/sockets/web_socket.h"

#include <arpa/inet.h>
#include <condition_variable>
#include <gtest/gtest.h>
#include <mutex>
#include <openssl/sha.h>
#include <sys/socket.h>

#include "platform/crypto/crypto.h"
#include "platform/files/descriptor.h"
#include "platform/sockets/tcp.h"
#include "support/http_server.h"

namespace vantrell {
namespace {

using namespace std::chrono_literals;
using Kind = WebSocketEnd::Kind;
using tests::HttpServer;
using tests::ServerConnection;

constexpr std::size_t mebibyte = std::size_t{1} << 20;

/// What has happened on a queue, for the test's thread to wait for.
class Log {
 public:
  void add(std::string event) {
    const std::lock_guard lock(mutex_);
    events_.push_back(std::move(event));
    changed_.notify_all();
  }
  std::string next() {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, 20s, [this] { return !events_.empty(); })) return "nothing";
    auto event = std::move(events_.front());
    events_.erase(events_.begin());
    return event;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> events_;
};

std::string brief(const std::string& bytes) {
  return bytes.size() < 100 ? bytes : std::to_string(bytes.size()) + " bytes";
}

std::string named(const WebSocketEnd& end) {
  static constexpr std::string_view names[]{"closed",   "cannotConnect", "notSecure", "refused",
                                            "timedOut", "badMessage",    "notRead",   "lost"};
  std::string text = "end ";
  text += names[static_cast<std::size_t>(end.kind)];
  if (end.closeCode) text += " " + std::to_string(*end.closeCode);
  if (!end.closeReason.empty()) text += " " + end.closeReason;
  if (end.status != 0) text += " " + std::to_string(end.status);
  EXPECT_TRUE(end.description.ends_with('.')) << end.description;
  return text;
}

class WebSocketTest : public testing::Test {
 protected:
  /// All use one queue, so that what a test calls on a socket runs in order with its events.
  BackgroundPool pool{2};
  SerialQueue queue{pool, "test"};
  Log client;
  Log server;
  std::shared_ptr<WebSocket> clientSocket;
  std::shared_ptr<WebSocket> serverSocket;
  std::shared_ptr<WebSocketListener> listener;

  ~WebSocketTest() override {
    on([this] {
      if (clientSocket) clientSocket->abort();
      if (serverSocket) serverSocket->abort();
      if (listener) listener->close();
    });
  }

  void on(const std::function<void()>& call) {
    Log done;
    queue.post([&] {
      call();
      done.add("done");
    });
    ASSERT_EQ(done.next(), "done");
  }
  static WebSocket::Handlers logTo(Log& log) {
    return {.onOpen = [&log] { log.add("open"); },
            .onText = [&log](const std::string& text) { log.add("text " + brief(text)); },
            .onBinary = [&log](const std::string& bytes) { log.add("binary " + brief(bytes)); },
            .onWritten = {},
            .onEnd = [&log](const WebSocketEnd& end) { log.add(named(end)); }};
  }
  /// Opens at /connect, answers at /plain, and logs the target and the header X-Test.
  std::string listen(WebSocketListener::Options options = {}, WebSocketLimits limits = {}) {
    const bool isSecure = options.identity.has_value();
    auto bound = WebSocketListener::bind(std::move(options));
    if (!bound) throw std::runtime_error(bound.error().description);
    listener = *bound;
    listener->start(
        queue, {.onAccept = {},
                .onRequest = [limits](const WebSocketRequest& request)
                    -> std::variant<WebSocketLimits, WebSocketListener::Answer> {
                  if (request.target.starts_with("/connect")) return limits;
                  if (request.target == "/plain") return WebSocketListener::Answer{.body = "plain"};
                  return WebSocketListener::Answer{.status = 404, .body = "nothing"};
                },
                .onOpen =
                    [this](std::shared_ptr<WebSocket> opened, const WebSocketRequest& request) {
                      std::string from = request.address + " " + request.target;
                      for (const auto& [name, value] : request.headers) {
                        if (name == "X-Test") from += " " + value;
                      }
                      server.add(from);
                      serverSocket = std::move(opened);
                      serverSocket->start(logTo(server));
                    },
                .onExhausted = {}});
    return (isSecure ? "wss://127.0.0.1:" : "ws://127.0.0.1:") + std::to_string(listener->port());
  }
  void connect(const std::string& url, WebSocket::Options options = {}) {
    clientSocket = WebSocket::connect(queue, *Url::parse(url), std::move(options), logTo(client));
  }
  void open(WebSocket::Options options = {}, WebSocketLimits limits = {}) {
    connect(listen({}, limits) + "/connect", std::move(options));
    ASSERT_EQ(client.next(), "open");
    ASSERT_EQ(server.next(), "127.0.0.1 /connect");
  }
};

TEST_F(WebSocketTest, CarriesMessagesOfBothKindsBothWaysAndTheRequestAsItIs) {
  connect(listen() + "/connect/a%20b?c=d&e#f", {.headers = {{"X-Test", "value"}}});
  EXPECT_EQ(client.next(), "open");
  EXPECT_EQ(server.next(), "127.0.0.1 /connect/a%20b?c=d&e value");
  on([&] {
    clientSocket->sendText("für");
    clientSocket->sendBinary(std::string(16 * mebibyte, 'x'));
    clientSocket->sendBinary(std::string());
    serverSocket->sendBinary(std::string(16 * mebibyte, 'y'));
    serverSocket->sendText("last");
    EXPECT_GT(clientSocket->queuedBytes(), mebibyte);
  });
  for (const auto* each : {"text für", "binary 16777216 bytes", "binary "}) {
    EXPECT_EQ(server.next(), each);
  }
  EXPECT_EQ(client.next(), "binary 16777216 bytes");
  EXPECT_EQ(client.next(), "text last");
  on([&] {
    EXPECT_EQ(clientSocket->queuedBytes(), 0U);
    clientSocket->sendText("before the close");
    clientSocket->close(1000, "bye");
    clientSocket->sendText("after it");
  });
  EXPECT_EQ(server.next(), "text before the close");
  EXPECT_EQ(server.next(), "end closed 1000 bye");
}

TEST_F(WebSocketTest, EndsAsTheOtherSideEndsIt) {
  struct Case {
    std::function<void(WebSocket&)> act;
    std::string end;
  };
  const std::string longReason = std::string(122, 'r') + "ü";
  const Case cases[]{
      {[](WebSocket& socket) { socket.close(1001, "going"); }, "end closed 1001 going"},
      {[&](WebSocket& socket) { socket.close(1008, longReason); },
       "end closed 1008 " + std::string(122, 'r')},
      {[](WebSocket& socket) { socket.abort(); }, "end lost"},
      {[](WebSocket& socket) { socket.sendBinary(std::string(1001, 'x')); }, "end badMessage"},
  };
  for (const auto& one : cases) {
    open({.limits = {.messageBytes = 1000}});
    on([&] { one.act(*serverSocket); });
    EXPECT_EQ(client.next(), one.end);
    on([&] { EXPECT_FALSE(clientSocket->isOpen()); });
    EXPECT_TRUE(one.end != "end badMessage" || server.next() == "end closed 1009");
    on([&] { listener->close(); });
  }
}

/// The system gives the number of a closed descriptor to the next one.
TEST(TcpListener, OneThatIsClosedLeavesTheNextOneAlone) {
  const auto closed = TcpListener::bind("127.0.0.1", 0);
  ASSERT_TRUE(closed);
  (*closed)->close();
  const auto next = TcpListener::bind("127.0.0.1", 0);
  ASSERT_TRUE(next);
  (*closed)->stopListening();
  const Descriptor caller(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address{.sin_family = AF_INET,
                            .sin_port = htons((*next)->port()),
                            .sin_addr = {htonl(INADDR_LOOPBACK)},
                            .sin_zero = {}};
  EXPECT_EQ(::connect(caller.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            0);
}

TEST_F(WebSocketTest, TrustsOnlyCertificatesOfTheAuthoritiesForThisHost) {
  const tests::CertificateAuthority authority;
  const tests::CertificateAuthority other;
  struct Case {
    std::string name, trusted, result;
  };
  const Case cases[]{{"IP:127.0.0.1", authority.pem(), "open"},
                     {"IP:127.0.0.1", other.pem(), "end notSecure"},
                     {"IP:127.0.0.1", "", "end notSecure"},
                     {"DNS:elsewhere.example", authority.pem(), "end notSecure"},
                     {"IP:127.0.0.1", "no certificate", "end notSecure"}};
  for (const auto& one : cases) {
    const auto [chain, key] = authority.serverPem(one.name);
    const auto identity = TlsIdentity::read(chain, key);
    ASSERT_TRUE(identity) << identity.error();
    connect(listen({.identity = *identity}) + "/connect", {.trustedCertificates = one.trusted});
    EXPECT_EQ(client.next(), one.result);
    if (one.result == "open") {
      EXPECT_EQ(server.next(), "127.0.0.1 /connect");
      on([&] { clientSocket->sendBinary(std::string(mebibyte, 'x')); });
      EXPECT_EQ(server.next(), "binary 1048576 bytes");
      on([&] { serverSocket->close(1000); });
      EXPECT_EQ(client.next(), "end closed 1000");
    }
    on([&] { listener->close(); });
  }
  const auto [chain, key] = authority.serverPem("IP:127.0.0.1");
  EXPECT_FALSE(TlsIdentity::read("", ""));
  EXPECT_FALSE(TlsIdentity::read(chain, authority.serverPem("IP:127.0.0.1").second));
}

TEST_F(WebSocketTest, SaysWhyItWasNotOpened) {
  HttpServer silent([](ServerConnection& connection) { connection.awaitClose(); });
  HttpServer ending([](ServerConnection& connection) { connection.read(); });
  HttpServer noise([](ServerConnection& connection) {
    connection.send("\x16\x03nonsense\r\n\r\n");
    connection.awaitClose();
  });
  const auto at = [](const HttpServer& on) { return "127.0.0.1:" + std::to_string(on.port()); };
  const std::string address = listen();
  const std::pair<std::string, std::string> cases[]{
      {address + "/nothing", "end refused 404"}, {address + "/plain", "end refused 200"},
      {"ws://" + at(ending), "end refused"},     {"ws://" + at(noise), "end refused"},
      {"wss://" + at(noise), "end notSecure"},   {"ws://" + at(silent), "end timedOut"},
      {"wss://" + at(silent), "end timedOut"},   {"ftp://" + at(silent), "end cannotConnect"},
      {"ws://127.0.0.1:1", "end cannotConnect"}, {"ws://host.invalid", "end cannotConnect"},
  };
  for (const auto& [url, end] : cases) {
    SCOPED_TRACE(url);
    connect(url, {.connectLimit = end == "end timedOut" ? 50ms : 15'000ms});
    EXPECT_EQ(client.next(), end);
  }
}

/// A server that opens the WebSocket by hand and then does what a test says.
HttpServer::Handler opening(std::function<void(ServerConnection&)> then) {
  return [then = std::move(then)](ServerConnection& connection) {
    const auto request = connection.read();
    const std::string key =
        request->headers.at("sec-websocket-key") + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
    std::array<std::uint8_t, SHA_DIGEST_LENGTH> digest{};
    SHA1(reinterpret_cast<const unsigned char*>(key.data()), key.size(), digest.data());
    connection.send(
        "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
        "Sec-WebSocket-Accept: " +
        crypto::base64(digest) + "\r\n\r\n");
    then(connection);
  };
}

TEST_F(WebSocketTest, ReadsWhatServersSendInAnyShape) {
  using namespace std::string_literals;
  const std::pair<std::string, std::vector<std::string>> cases[]{
      // A text in three fragments with a ping between them, and a binary message in the same bytes.
      {"\x01\x02He"s + "\x00\x01l"s + "\x89\x01p"s + "\x80\x02lo"s + "\x82\x01x"s,
       {"text Hello", "binary x"}},
      {"\x88\x00"s, {"end closed"}},
      {"\x88\x05\x03\xE8"s + "bye", {"end closed 1000 bye"}},
      {"\x81\x02\xC3\x28"s, {"end badMessage"}},           // not UTF-8
      {"\x81\x81\x00\x00\x00\x00x"s, {"end badMessage"}},  // a server must not mask
      {"\x83\x00"s, {"end badMessage"}},                   // an unknown kind
      {"\xC1\x01x"s, {"end badMessage"}},                  // compressed, which was not agreed
      {"\x80\x01x"s, {"end badMessage"}},                  // continues nothing
      {"\x82\x7F\x00\x00\x00\x01\x00\x00\x00\x00"s, {"end badMessage"}},  // announces 4 GiB
  };
  for (const auto& [bytes, events] : cases) {
    HttpServer raw(opening([&bytes](ServerConnection& connection) {
      connection.send(bytes);
      connection.awaitClose();
    }));
    connect("ws://127.0.0.1:" + std::to_string(raw.port()));
    EXPECT_EQ(client.next(), "open");
    for (const auto& event : events)
      EXPECT_EQ(client.next(), event) << testing::PrintToString(bytes);
    on([&] { clientSocket->abort(); });
  }
}

TEST_F(WebSocketTest, KeepsASilentConnectionByPingsAndEndsADeadOne) {
  HttpServer raw(opening([](ServerConnection& connection) {
    for (int count = 0; count < 3; ++count) {
      char ping[6];  // masked, without content
      if (::recv(connection.socket(), ping, sizeof ping, MSG_WAITALL) != 6 || ping[0] != '\x89') {
        return;
      }
      connection.send(std::string_view("\x8A\x00", 2));
    }
    connection.send("\x81\x05three");
    connection.awaitClose();
  }));
  connect("ws://127.0.0.1:" + std::to_string(raw.port()), {.limits = {.idle = 400ms}});
  for (const auto* each : {"open", "text three", "end timedOut"}) EXPECT_EQ(client.next(), each);
}

TEST_F(WebSocketTest, HoldsASenderBackWhilePausedAndEndsOneThatQueuesTooMuch) {
  open({.limits = {.queuedBytes = 64 * mebibyte}});
  on([&] {
    serverSocket->setPaused(true);
    for (int count = 0; count < 60; ++count) clientSocket->sendBinary(std::string(mebibyte, 'x'));
  });
  on([&] { serverSocket->setPaused(false); });
  for (int count = 0; count < 60; ++count) EXPECT_EQ(server.next(), "binary 1048576 bytes");
  on([&] {
    serverSocket->setPaused(true);
    for (int count = 0; count < 70; ++count) clientSocket->sendBinary(std::string(mebibyte, 'x'));
    EXPECT_FALSE(clientSocket->isOpen());
    EXPECT_EQ(clientSocket->queuedBytes(), 0U);
  });
  EXPECT_EQ(client.next(), "end notRead");
}

TEST_F(WebSocketTest, GivesUpACloseThatIsNotRead) {
  HttpServer raw(opening([](ServerConnection& connection) {
    connection.read();  // text with an end of a head in it, which ends the silence
    connection.awaitClose();
  }));
  connect("ws://127.0.0.1:" + std::to_string(raw.port()));
  EXPECT_EQ(client.next(), "open");
  std::weak_ptr<WebSocket> weak = clientSocket;
  on([&] {
    clientSocket->sendBinary(std::string(32 * mebibyte, 'x'));
    clientSocket->close(1000);
    clientSocket.reset();
  });
  Log gone;
  std::function<void()> look = [&] { weak.expired() ? gone.add("gone") : queue.post(look); };
  queue.post(look);
  EXPECT_EQ(gone.next(), "gone");
}

std::string exchange(std::uint16_t port, const std::string& request) {
  const Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  if (::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    return "";
  std::ignore = ::send(socket.get(), request.data(), request.size(), MSG_NOSIGNAL);
  std::string answer;
  char bytes[4096];
  while (const auto count = ::recv(socket.get(), bytes, sizeof bytes, 0)) {
    if (count < 0) break;
    answer.append(bytes, static_cast<std::size_t>(count));
  }
  return answer;
}

TEST_F(WebSocketTest, AnswersWhatIsNoWebSocket) {
  listen({.requestLimit = 200ms});
  const std::pair<std::string, std::string> cases[]{
      {"GET /plain HTTP/1.1\r\nHost: h\r\n\r\n", "HTTP/1.1 200 OK"},
      {"HEAD /plain HTTP/1.0\r\n\r\n", "HTTP/1.1 200 OK"},
      {"GET /else HTTP/1.1\r\nHost: h\r\n\r\n", "HTTP/1.1 404 Not Found"},
      {"GET /connect HTTP/1.1\r\nHost: h\r\n\r\n", "HTTP/1.1 426 Upgrade Required"},
      {"nonsense\r\n\r\n", "HTTP/1.1 400 Bad Request"},
      {"GET /plain HTTP/1.1\r\nA: " + std::string(9000, 'x') + "\r\n\r\n",
       "HTTP/1.1 431 Request Header Fields Too Large"},
      {"GET /plain HTTP/1.1\r\n", ""},  // never ends, and is dropped
  };
  for (const auto& [request, line] : cases) {
    const auto answer = exchange(listener->port(), request);
    EXPECT_EQ(answer.substr(0, answer.find("\r\n")), line) << brief(request);
    const bool hasBody = line.ends_with("200 OK") && !request.starts_with("HEAD");
    EXPECT_EQ(answer.ends_with("\r\n\r\nplain"), hasBody) << answer;
  }
}

}  // namespace
}  // namespace vantrell
