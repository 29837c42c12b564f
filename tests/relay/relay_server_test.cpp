// The relay over real sockets, and its program.
#include "relay/relay_server.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <regex>

#include "platform/queues/manual_main_queue.h"
#include "support/certificate_authority.h"
#include "support/temporary_folder.h"

namespace vantrell::relay {
namespace {

constexpr std::string_view pairID = "AAAAAAAAAAAAAAAAAAAAAA";

class RelayServerTest : public testing::Test {
 protected:
  /// One end, whose events are written down on the main queue.
  struct End {
    std::shared_ptr<WebSocket> socket;
    std::vector<std::string> events;
  };

  ManualMainQueue main;
  BackgroundPool pool{2};
  SerialQueue queue{pool, "ends"};
  tests::CertificateAuthority authority;
  std::shared_ptr<RelayServer> server;
  std::vector<std::shared_ptr<End>> ends;

  ~RelayServerTest() override {
    for (const auto& end : ends) queue.post([end] { end->socket->abort(); });
  }

  void start(RelayServer::Options options = {}) {
    const auto [chain, key] = authority.serverPem("IP:127.0.0.1");
    options.port = 0;
    options.identity = *TlsIdentity::read(chain, key);
    auto started = RelayServer::start(main, pool, std::move(options), [](const std::string&) {});
    if (!started) throw std::runtime_error(started.error());
    server = *started;
  }
  std::shared_ptr<End> connect(const std::string& hello, std::vector<HttpHeader> headers = {}) {
    auto end = std::make_shared<End>();
    const auto note = [this, end](std::string event) {
      main.post([end, event = std::move(event)] { end->events.push_back(event); });
    };
    const auto url = *Url::parse("wss://127.0.0.1:" + std::to_string(server->port()) +
                                 std::string(RelayServer::path));
    WebSocket::Options options{.headers = std::move(headers),
                               .trustedCertificates = authority.pem()};
    queue.post([=, this, options = std::move(options)]() mutable {
      end->socket = WebSocket::connect(
          queue, url, std::move(options),
          {.onOpen = [end, hello] { end->socket->sendText(hello); },
           .onText = note,
           .onBinary =
               [note](const std::string& bytes) { note(std::to_string(bytes.size()) + " bytes"); },
           .onWritten = {},
           .onEnd =
               [note](const WebSocketEnd& how) {
                 note("end " + std::to_string(how.closeCode.value_or(how.status)));
               }});
    });
    ends.push_back(end);
    return end;
  }
  std::shared_ptr<End> join(std::string_view role, std::vector<HttpHeader> headers = {}) {
    return connect(R"({"version":1,"role":")" + std::string(role) + R"(","pairID":")" +
                       std::string(pairID) + R"(","pairingLink":"vantrell://pair?x"})",
                   std::move(headers));
  }
  std::string next(End& end) {
    if (!main.runUntil([&] { return !end.events.empty(); })) return "nothing";
    auto event = end.events.front();
    end.events.erase(end.events.begin());
    return event;
  }
};

TEST_F(RelayServerTest, BringsHostAndClientTogetherAndEndsBothWhenItStops) {
  start();
  const auto host = join("host");
  EXPECT_EQ(next(*host), R"({"type":"ready"})");
  EXPECT_EQ(next(*host), R"({"type":"peer_count","count":0})");
  const auto coded = next(*host);
  std::smatch code;
  ASSERT_TRUE(std::regex_search(coded, code, std::regex(R"x("code":"(\w{8})","expiresIn":600)x")));
  const auto user = connect(R"({"version":1,"role":"resolve","code":")" + code[1].str() + R"("})");
  EXPECT_EQ(next(*user), R"({"type":"pairing_link","link":"vantrell://pair?x"})");
  EXPECT_EQ(next(*user), "end 1000");
  EXPECT_NE(next(*host), coded);

  const auto client = join("client");
  EXPECT_EQ(next(*client), R"({"type":"ready","hostOnline":true})");
  EXPECT_EQ(next(*host), R"({"type":"peer_count","count":1})");
  queue.post([&] {
    host->socket->sendBinary(std::string(16'777'216, 'x'));
    client->socket->sendBinary(std::string(16'777'217, 'x'));
  });
  EXPECT_EQ(next(*host), R"({"type":"peer_count","count":0})");
  std::string event;
  do event = next(*client);
  while (event == "16777216 bytes");  // or the end comes first
  EXPECT_EQ(event, "end 1009");

  bool isStopped = false;
  server->stop([&] { isStopped = true; });
  EXPECT_EQ(next(*host), "end 1001");
  while (!isStopped) {
    main.advance(std::chrono::milliseconds(20));
    main.runReady();
  }
}

TEST_F(RelayServerTest, LimitsTheConnectionsOfAnAddressAsTheProxyNamesIt) {
  RelayServer::Options options{.trustsProxy = true};
  options.limits.addresses.connections = 2;
  start(std::move(options));
  const auto from = [this](const std::string& address) {
    return next(*join("client", {{"X-Forwarded-For", "10.9.9.9, " + address}}));
  };
  const std::string ready = R"({"type":"ready","hostOnline":false})";
  EXPECT_EQ(from("10.0.0.1"), ready);
  EXPECT_EQ(from("10.0.0.1"), ready);
  EXPECT_EQ(from("10.0.0.1"), "end 429");
  EXPECT_EQ(from("10.0.0.2"), ready);
}

TEST(ClientAddress, IsTakenFromTheTrustedProxyOnly) {
  struct Case {
    std::vector<std::string> forwarded;
    bool trustsProxy;
    std::string address;
  };
  const Case cases[]{
      {{"10.0.0.1"}, false, "127.0.0.1"},
      {{"10.0.0.1"}, true, "10.0.0.1"},
      {{"1.2.3.4, 10.0.0.1"}, true, "10.0.0.1"},
      {{"1.2.3.4", "5.6.7.8, 2001:db8::1 "}, true, "2001:db8::1"},
      {{"1.2.3.4, unknown"}, true, "127.0.0.1"},
      {{}, true, "127.0.0.1"},
  };
  for (const auto& one : cases) {
    WebSocketRequest request{.address = "127.0.0.1"};
    for (const auto& value : one.forwarded) request.headers.push_back({"x-forwarded-FOR", value});
    EXPECT_EQ(clientAddress(request, one.trustsProxy), one.address);
  }
}

int exitCodeOf(const std::string& script) {
  const auto folder = std::filesystem::canonical("/proc/self/exe").parent_path();
  const int status =
      std::system(("R=" + (folder / "vantrell-relay").native() + "; " + script).c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(RelayProgram, SaysWhatIsWrongWithItsArguments) {
  const std::pair<std::string, int> cases[]{
      {"--help", 0},
      {"--version", 0},
      {"--nonsense", 2},
      {"--listen", 2},
      {"--listen nowhere", 2},
      {"--listen 127.0.0.1:65536", 2},
      {"--pairs 0", 2},
      {"--certificate /dev/null", 2},
      {"--certificate /dev/null --key /dev/null", 1},
      {"--listen 203.0.113.1:1", 1},
  };
  for (const auto& [arguments, code] : cases) {
    EXPECT_EQ(exitCodeOf("$R " + arguments + " >/dev/null 2>&1"), code) << arguments;
  }
}

TEST(RelayProgram, EndsCleanlyAlsoWithClosedStreamsAndFewDescriptors) {
  const std::pair<std::string, std::string> cases[]{
      {"$R --listen 127.0.0.1:0 >$O 2>&1", "kill -TERM $!"},
      {"ulimit -n 64; $R --listen 127.0.0.1:0 <&- >$O 2>&-", "kill -HUP $!; kill -INT $!"},
  };
  for (const auto& [start, end] : cases) {
    const tests::TemporaryFolder folder;
    EXPECT_EQ(exitCodeOf("O=" + folder.path() + "/out; : >$O; " + start +
                         " & until grep -q listens $O; do :; done; " + end + "; wait $!"),
              0)
        << start;
  }
}

}  // namespace
}  // namespace vantrell::relay
