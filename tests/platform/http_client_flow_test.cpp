// Redirects, certificates, cancelling, and bodies that are used as they come.
#include <gmock/gmock.h>
#include <poll.h>

#include "support/http_client_fixture.h"
#include "support/http_server.h"

namespace vantrell::tests {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using Kind = HttpError::Kind;
using Redirects = HttpRequest::Redirects;

class HttpFlow : public HttpClientFixture {};

TEST_F(HttpFlow, FollowsRedirectsAndRefusesThemWhenTold) {
  const HttpServer server(HttpServer::answering([](auto& connection, const auto& request) {
    if (request.target.starts_with("/to/")) {
      const int status = std::stoi(request.target.substr(4));
      connection.answer(status, "elsewhere", "Location: /end\r\n");
    } else {
      connection.answer(200, request.method + " " + request.body);
    }
  }));
  struct Case {
    std::string method;
    int status;
    std::string ends;
  };
  for (const auto& one : {Case{"GET", 301, "GET "}, Case{"GET", 308, "GET "},
                          Case{"POST", 302, "GET "}, Case{"POST", 303, "GET "},
                          Case{"POST", 307, "POST word"}, Case{"POST", 308, "POST word"}}) {
    SCOPED_TRACE(one.method + " " + std::to_string(one.status));
    HttpRequest request{.method = one.method,
                        .url = server.url("/to/" + std::to_string(one.status)),
                        .body = one.method == "POST" ? "word" : ""};
    const auto followed = send(request);
    ASSERT_TRUE(followed) << followed.error().description;
    EXPECT_EQ(followed->status, 200);
    EXPECT_EQ(followed->body, one.ends);
    EXPECT_EQ(followed->header("location"), nullptr);
    request.redirects = Redirects::refuse;
    const auto refused = send(request);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status, one.status);
    EXPECT_EQ(refused->body, "elsewhere");
  }
}

TEST_F(HttpFlow, DoesNotGoRoundInCirclesNorWhereRedirectsMustNotLead) {
  const CertificateAuthority authority;
  std::string location;
  const HttpServer server(HttpServer::answering([&](auto& connection, const auto&) {
                            connection.answer(302, "", "Location: " + location + "\r\n");
                          }),
                          authority.server());
  const HttpServer plain(
      HttpServer::answering([](auto& connection, const auto&) { connection.answer(200, ""); }));
  HttpClient client(loop_, {.extraAuthorities = authority.pem()});
  for (const auto& target : {std::string("/again"), plain.url(), std::string("file:///etc/passwd"),
                             std::string("http://")}) {
    SCOPED_TRACE(target);
    location = target;
    const auto result = send(client, {.url = server.url()});
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().kind, target == "http://" ? Kind::invalidRequest : Kind::badAnswer);
    if (target == "/again") {
      EXPECT_THAT(result.error().description, HasSubstr("without end"));
    }
  }
  EXPECT_EQ(plain.connections(), 0);
}

TEST_F(HttpFlow, TrustsOnlyCertificatesOfKnownAuthoritiesForTheRightName) {
  const CertificateAuthority authority;
  const CertificateAuthority other;
  const auto answer =
      HttpServer::answering([](auto& connection, const auto&) { connection.answer(200, "in"); });
  const HttpServer server(answer, authority.server());
  const HttpServer misnamed(answer, authority.server("IP:127.0.0.2"));
  HttpClient client(loop_, {.extraAuthorities = authority.pem()});
  HttpClient stranger(loop_, {.extraAuthorities = other.pem()});

  const auto trusted = send(client, {.url = server.url()});
  ASSERT_TRUE(trusted) << trusted.error().description;
  EXPECT_EQ(trusted->body, "in");
  for (const auto& refused : {send(client, {.url = misnamed.url()}),
                              send(stranger, {.url = server.url()}), send({.url = server.url()})}) {
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().kind, Kind::notSecure);
    EXPECT_THAT(refused.error().description, HasSubstr("No secure connection to 127.0.0.1:"));
  }
  // A server that speaks no TLS at all.
  const HttpServer plain([](ServerConnection& connection) {
    connection.answer(400, "in plain words");
    connection.awaitClose();
  });
  const auto mistaken = send({.url = "https://" + plain.hostAndPort()});
  ASSERT_FALSE(mistaken);
  EXPECT_EQ(mistaken.error().kind, Kind::notSecure);
}

TEST_F(HttpFlow, CanBeCancelledAtEveryStage) {
  for (const std::string_view sent :
       {"not asked", "", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n",
        "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc"}) {
    SCOPED_TRACE(sent);
    std::atomic<bool> isSent = false;
    std::atomic<bool> sawTheClose = false;
    const HttpServer server([&](ServerConnection& connection) {
      if (connection.read()) {
        connection.send(std::string(sent));
        isSent = true;
        connection.awaitClose();
      }
      sawTheClose = true;
    });
    int completions = 0;
    const auto transfer = client_.send({.url = server.url()}, [&](HttpResult result) {
      ++completions;
      ASSERT_FALSE(result);
      EXPECT_EQ(result.error().kind, Kind::cancelled);
    });
    const bool isAsked = sent != "not asked";
    if (isAsked) runUntil([&] { return isSent.load(); });
    transfer->cancel();
    runUntil([&] { return completions == 1; });
    transfer->cancel();  // once more has no effect
    if (isAsked) runUntil([&] { return sawTheClose.load(); });
    EXPECT_EQ(completions, 1);
  }
}

TEST_F(HttpFlow, CompletesWhatIsUnderWayWhenTheClientGoes) {
  std::atomic<bool> wasAsked = false;
  const HttpServer server([&](ServerConnection& connection) {
    connection.read();
    wasAsked = true;
    connection.awaitClose();
  });
  int cancelled = 0;
  std::shared_ptr<HttpTransfer> transfer;
  {
    HttpClient client(loop_);
    const auto count = [&](HttpResult result) {
      ASSERT_FALSE(result);
      if (result.error().kind == Kind::cancelled) ++cancelled;
    };
    transfer = client.send({.url = server.url()}, count);
    runUntil([&] { return wasAsked.load(); });
    client.send({.url = server.url()}, count);  // may not even have begun
  }
  transfer->cancel();
  runUntil([&] { return cancelled == 2; });
}

TEST_F(HttpFlow, SaysSoWhenTheLibraryIsNotThere) {
  int requests = 0;
  const HttpServer server(HttpServer::answering([&](auto& connection, const auto&) {
    ++requests;
    connection.answer(200, "");
  }));
  const auto expectSentence = [](const HttpResult& result) {
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().kind, Kind::noLibrary);
    EXPECT_THAT(result.error().description, testing::StartsWith("HTTP requests need the library"));
    EXPECT_THAT(result.error().description, testing::HasSubstr("libvantrell-none.so"));
  };
  HttpClient client(loop_, {.library = "libvantrell-none.so"});
  expectSentence(send(client, {.url = server.url("/")}));
  expectSentence(send(client, {.url = server.url("/again")}));
  EXPECT_EQ(requests, 0);
}

}  // namespace
}  // namespace vantrell::tests
