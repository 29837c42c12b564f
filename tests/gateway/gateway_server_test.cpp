#include "gateway/gateway_server.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>

#include "platform/files/descriptor.h"
#include "platform/queues/manual_main_queue.h"

namespace vantrell {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

/// A caller at the other end of a real socket.
class Caller {
 public:
  explicit Caller(int port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    ::setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    isConnected_ =
        ::connect(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  }
  bool isConnected() const { return isConnected_; }
  bool send(std::string_view bytes) const {
    while (!bytes.empty()) {
      const auto count = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (count <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
  }
  void endSending() const { ::shutdown(socket_.get(), SHUT_WR); }
  /// What has come, without waiting. True at the end of the connection.
  bool read() {
    char bytes[65'536];
    for (;;) {
      const auto count = ::recv(socket_.get(), bytes, sizeof bytes, MSG_DONTWAIT);
      if (count < 0 && errno == EAGAIN) return false;
      if (count <= 0) return true;
      received_.append(bytes, static_cast<std::size_t>(count));
    }
  }
  const std::string& received() const { return received_; }
  int socket() const { return socket_.get(); }

 private:
  Descriptor socket_;
  bool isConnected_ = false;
  std::string received_;
};

class GatewayServerTest : public testing::Test {
 protected:
  void SetUp() override {
    server_.onRequest = [this](GatewayRequest request, GatewayServer::Respond respond) {
      requests_.push_back(request);
      respond(GatewayResponse::json(JsonObject{{"path", request.path}}));
    };
    ASSERT_TRUE(server_.start("127.0.0.1", 0));
  }
  bool waitFor(const std::function<bool()>& condition) {
    for (int round = 0; round < 20'000; ++round) {
      if (condition()) return true;
      main_.runUntil([] { return false; }, std::chrono::milliseconds(1));
    }
    return condition();
  }
  std::string answerTo(Caller& caller) {
    EXPECT_TRUE(waitFor([&] { return caller.read(); })) << caller.received();
    return caller.received();
  }
  /// Sends the pieces one by one, and ends sending if asked to.
  std::string exchange(const std::vector<std::string>& pieces, bool ends = false) {
    Caller caller(server_.port());
    for (const auto& piece : pieces) caller.send(piece);
    if (ends) caller.endSending();
    return answerTo(caller);
  }

  ManualMainQueue main_;
  GatewayServer server_{main_};
  std::vector<GatewayRequest> requests_;
};

std::string badRequest() {
  return R"({"error":{"code":"bad_request","message":"The HTTP request is invalid."}})";
}
const std::string projects = "GET /v1/projects HTTP/1.1\r\nHost: a\r\n\r\n";

TEST_F(GatewayServerTest, AnswersWithTheWholeHeadAndEndsTheConnection) {
  EXPECT_EQ(exchange({projects}),
            "HTTP/1.1 200 OK\r\n"
            "Content-Type: application/json; charset=utf-8\r\n"
            "Content-Length: 23\r\n"
            "Cache-Control: no-store\r\n"
            "X-Content-Type-Options: nosniff\r\n"
            "Connection: close\r\n\r\n"
            R"({"path":"/v1/projects"})");
}

TEST_F(GatewayServerTest, NoHeaderCanBeInjected) {
  GatewayResponse response = GatewayResponse::json(Json::Array{}, 418);
  response.headers = {{"X-B", "1\r\nX-Evil: 2"}, {"X-A", std::string("\0b\n", 3)}};
  response.contentType = "text/plain\r\n\r\n";
  EXPECT_EQ(httpText(response),
            "HTTP/1.1 418 Server Error\r\nContent-Type: text/plain\r\nContent-Length: 2\r\n"
            "Cache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n"
            "X-A: b\r\nX-B: 1X-Evil: 2\r\nConnection: close\r\n\r\n[]");
}

TEST_F(GatewayServerTest, OneByteAtATimeAndAHalfClosedCallerAreServed) {
  Caller slow(server_.port());
  for (const char byte : projects) slow.send(std::string(1, byte));
  EXPECT_THAT(answerTo(slow), StartsWith("HTTP/1.1 200 "));
  EXPECT_THAT(exchange({"POST / HTTP/1.1\r\nContent-Length: 2\r\n\r\n", "a", "b"}, true),
              StartsWith("HTTP/1.1 200 "));
  EXPECT_EQ(requests_.back().body, "ab");
}

TEST_F(GatewayServerTest, OnlyTheFirstOfTwoRequestsInOneSegmentIsServed) {
  const auto answer = exchange({projects + projects});
  EXPECT_EQ(answer.find("HTTP/1.1"), answer.rfind("HTTP/1.1"));
  EXPECT_EQ(requests_.size(), 1);
}

TEST_F(GatewayServerTest, RequestsThatEndEarlyAreAnswered) {
  for (const std::string half :
       {"GET / HT", "POST / HTTP/1.1\r\nContent-Length: 4\r\n\r\nab", ""}) {
    EXPECT_THAT(
        exchange({half}, true),
        HasSubstr(R"({"code":"incomplete_request","message":"The HTTP request ended early."})"));
  }
}

/// The answers must arrive although the caller is still sending.
TEST_F(GatewayServerTest, TheLongestBodyIsTakenAndALongerOneRefused) {
  const auto post = [](std::size_t size, std::size_t head = 0) {
    return "POST / HTTP/1.1\r\nX-Fill: " + std::string(head, 'x') +
           "\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n" + std::string(size, 'b');
  };
  EXPECT_THAT(exchange({post(1'048'576)}), StartsWith("HTTP/1.1 200 "));
  EXPECT_EQ(requests_.back().body.size(), 1'048'576);
  EXPECT_THAT(exchange({post(1'048'577)}), HasSubstr(badRequest()));
  EXPECT_THAT(
      exchange({post(1'048'576, 100'000)}),
      HasSubstr(R"({"code":"request_too_large","message":"The request body is too large."})"));
}

/// Bytes that are not read would reset the connection, and with it the response.
TEST_F(GatewayServerTest, ACallerThatSendsOnGetsItsAnswer) {
  const std::string more(std::size_t{4} << 20, 'x');
  for (const std::string head :
       {"GET / HTTP/1.1\r\n\r\n", "POST / HTTP/1.1\r\nContent-Length: 2\r\n\r\nab",
        "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n", "POST / HTTP/1.1\r\n\r\n",
        "bad\r\n\r\n"}) {
    SCOPED_TRACE(head);
    Caller caller(server_.port());
    std::thread sending([&] { EXPECT_TRUE(caller.send(head + more)); });
    EXPECT_TRUE(waitFor([&] { return caller.read(); }));
    EXPECT_THAT(caller.received(), StartsWith(head[0] == 'b' ? "HTTP/1.1 400 " : "HTTP/1.1 200 "));
    sending.join();
  }
}

TEST_F(GatewayServerTest, TheEndAnswersThoseThatWait) {
  auto server = std::make_unique<GatewayServer>(main_);
  GatewayServer::Respond respond;
  server->onRequest = [&](const GatewayRequest&, GatewayServer::Respond later) { respond = later; };
  ASSERT_TRUE(server->start("127.0.0.1", 0));
  Caller caller(server->port());
  Caller half(server->port());
  caller.send("POST / HTTP/1.1\r\n\r\n");
  half.send("GET");
  ASSERT_TRUE(waitFor([&] { return respond != nullptr; }));
  std::thread reading([&] {
    while (!caller.read()) std::this_thread::yield();
    caller.endSending();
  });
  server = nullptr;
  reading.join();
  EXPECT_THAT(caller.received(), HasSubstr("Personal Gateway is unavailable."));
  EXPECT_EQ(answerTo(half), "");
  respond({});  // changes nothing any more
}

TEST_F(GatewayServerTest, WithoutDescriptorsItFailsWithASentence) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "The sanitizer checks addresses with a pipe, for which it needs descriptors.";
#endif
  rlimit files{};
  ::getrlimit(RLIMIT_NOFILE, &files);
  Descriptor next(::dup(0));
  const auto free = static_cast<rlim_t>(next.get());
  next.reset();
  for (const rlim_t count : {0, 1, 2}) {  // for the listener, then for what waits for it
    GatewayServer server(main_);
    const rlimit few{free + count, files.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &few);
    const auto started = server.start("127.0.0.1", 0);
    ::setrlimit(RLIMIT_NOFILE, &files);
    ASSERT_FALSE(started) << count;
    EXPECT_THAT(started.error().description, HasSubstr(": Too many open files."));
    EXPECT_EQ(server.state().phase, GatewayServer::Phase::failed);
  }
}

TEST_F(GatewayServerTest, ADroppedAnswerAndAMissingHandlerAre503) {
  server_.onRequest = [](const GatewayRequest&, const GatewayServer::Respond&) {};
  EXPECT_THAT(exchange({projects}), HasSubstr("Personal Gateway is unavailable."));
  server_.onRequest = nullptr;
  EXPECT_THAT(exchange({projects}), HasSubstr("Personal Gateway is not ready."));
}

TEST_F(GatewayServerTest, StatesFollowAndAStopClosesWhatIsNotComplete) {
  std::vector<GatewayServer::Phase> phases;
  server_.onStateChange = [&] { phases.push_back(server_.state().phase); };
  const auto port = server_.port();
  GatewayServer second(main_);
  const auto taken = second.start("127.0.0.1", port);
  ASSERT_FALSE(taken);
  EXPECT_EQ(taken.error().description,
            "Could not listen on 127.0.0.1:" + std::to_string(port) + ": Address already in use.");
  GatewayServer::Respond respond;
  server_.onRequest = [&](const GatewayRequest&, GatewayServer::Respond later) { respond = later; };
  Caller half(port);
  Caller whole(port);
  half.send("GET / HT");
  whole.send(projects);
  ASSERT_TRUE(waitFor([&] { return respond != nullptr; }));
  server_.stop();
  EXPECT_EQ(server_.state().phase, GatewayServer::Phase::stopped);
  main_.runReady();
  EXPECT_EQ(answerTo(half), "");
  EXPECT_TRUE(waitFor([&] { return !Caller(port).isConnected(); }));
  respond(GatewayResponse::json(Json::Array{}));
  EXPECT_THAT(answerTo(whole), StartsWith("HTTP/1.1 200 "));
  ASSERT_TRUE(server_.start("127.0.0.1", port)) << "the port is free at once";
  EXPECT_TRUE(waitFor([&] { return server_.state().phase == GatewayServer::Phase::listening; }));
  using enum GatewayServer::Phase;
  EXPECT_THAT(phases, testing::ElementsAre(starting, listening, stopped, starting, listening));
  EXPECT_EQ(second.state().phase, failed);
}

TEST_F(GatewayServerTest, ALiveCallerIsServedAmongFiveThousandSilentOnes) {
  rlimit files{};
  ::getrlimit(RLIMIT_NOFILE, &files);
  const rlimit more{std::max<rlim_t>(files.rlim_cur, std::min<rlim_t>(files.rlim_max, 6'000)),
                    files.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &more);
  std::vector<std::unique_ptr<Caller>> silent;
  for (int number = 0; number < 5'000; ++number) {
    silent.push_back(std::make_unique<Caller>(server_.port()));
    ASSERT_TRUE(silent.back()->isConnected()) << "at " << number;
    if (number % 3 == 0) silent.back()->send("GET / HT");
    if (number % 500 != 0) continue;
    ASSERT_THAT(exchange({projects}), StartsWith("HTTP/1.1 200 "));
  }
  // All but the newest give way.
  std::size_t left = silent.size();
  EXPECT_TRUE(waitFor([&] {
    const auto isOpen = [](auto& caller) { return !caller->read(); };
    left = static_cast<std::size_t>(std::ranges::count_if(silent, isOpen));
    return left <= GatewayServer::mostConnections;
  })) << left;
  EXPECT_GE(left, GatewayServer::mostConnections - 10);
  silent.clear();
  ::setrlimit(RLIMIT_NOFILE, &files);
}

TEST_F(GatewayServerTest, ServesOnWhenTheProcessHasNoDescriptorsLeft) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "The sanitizer checks addresses with a pipe, for which it needs descriptors.";
#endif
  std::vector<std::unique_ptr<Caller>> silent;
  for (int number = 0; number < 50; ++number) {
    silent.push_back(std::make_unique<Caller>(server_.port()));
  }
  Caller live(server_.port());
  ASSERT_THAT(exchange({projects}), StartsWith("HTTP/1.1 200 "));  // so `live` is accepted
  rlimit files{};
  ::getrlimit(RLIMIT_NOFILE, &files);
  std::vector<Descriptor> used;
  const rlimit few{static_cast<rlim_t>(live.socket()) + 80, files.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &few);
  for (;;) {
    Descriptor one(::dup(live.socket()));
    if (!one) break;
    used.push_back(std::move(one));
  }
  used.pop_back();  // for the caller
  Caller late(server_.port());
  live.send(projects);
  late.send(projects);
  const auto answer = answerTo(late);
  used.clear();
  ::setrlimit(RLIMIT_NOFILE, &files);
  EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 "));
}

TEST_F(GatewayServerTest, UnreadResponsesGiveWay) {
  const std::string large(std::size_t{32} << 20, 'x');
  server_.onRequest = [&](const GatewayRequest& request, const GatewayServer::Respond& respond) {
    respond({.body = request.path == "/large" ? large : ""});
  };
  std::vector<std::unique_ptr<Caller>> deaf;
  for (std::size_t number = 0; number <= GatewayServer::mostResponseBytes / large.size();
       ++number) {
    deaf.push_back(std::make_unique<Caller>(server_.port()));
    deaf.back()->send("GET /large HTTP/1.1\r\n\r\n");
    EXPECT_THAT(exchange({projects}), StartsWith("HTTP/1.1 200 "));
  }
  EXPECT_LT(answerTo(*deaf.front()).size(), large.size());
  EXPECT_GT(answerTo(*deaf.back()).size(), large.size());
}

}  // namespace
}  // namespace vantrell
