#include "platform/http/http_client.h"

#include <gmock/gmock.h>
#include <latch>
#include <poll.h>
#include <semaphore>

#include "support/environment.h"
#include "support/http_client_fixture.h"
#include "support/http_server.h"

namespace vantrell::tests {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using Kind = HttpError::Kind;

class HttpClientTest : public HttpClientFixture {};

/// Sends the bytes for every request, as they are, and closes.
HttpServer::Handler sending(std::string bytes) {
  return [bytes = std::move(bytes)](ServerConnection& connection) {
    if (connection.read()) connection.send(bytes);
  };
}

void expectError(const HttpResult& result, Kind kind, const std::string& words) {
  ASSERT_FALSE(result) << "status " << result->status;
  EXPECT_EQ(result.error().kind, kind) << result.error().description;
  EXPECT_THAT(result.error().description, HasSubstr(words));
}

TEST_F(HttpClientTest, SendsWhatItWasGivenAndNothingOfItsOwn) {
  std::vector<ReceivedRequest> seen;
  const HttpServer server(HttpServer::answering([&](auto& connection, const auto& request) {
    seen.push_back(request);
    connection.answer(200, "");
  }));
  const std::string body("\0{\xC3\xA4}\xFF", 6);
  ASSERT_TRUE(send({.method = "POST",
                    .url = server.url("/a%20b?c=d#not-sent"),
                    .headers = {{"X-Empty", ""}, {"X-One", "1: 2"}},
                    .body = body}));
  ASSERT_TRUE(send({.method = "PUT", .url = server.url("/put"), .body = "x"}));
  ASSERT_TRUE(send({.method = "DELETE", .url = server.url("/gone")}));
  ASSERT_TRUE(get(server.url("")));

  const std::string host = server.hostAndPort();
  using Headers = std::map<std::string, std::string>;
  ASSERT_EQ(seen.size(), 4U);
  EXPECT_EQ(seen[0].method + " " + seen[0].target, "POST /a%20b?c=d");
  EXPECT_EQ(seen[0].body, body);
  EXPECT_EQ(seen[0].headers, (Headers{{"host", host},
                                      {"accept", "*/*"},
                                      {"content-length", "6"},
                                      {"x-empty", ""},
                                      {"x-one", "1: 2"}}));
  EXPECT_EQ(seen[1].method + " " + seen[1].target + " " + seen[1].body, "PUT /put x");
  EXPECT_EQ(seen[2].method + " " + seen[2].target, "DELETE /gone");
  EXPECT_EQ(seen[3].method + " " + seen[3].target, "GET /");
  EXPECT_EQ(seen[3].headers, (Headers{{"host", host}, {"accept", "*/*"}}));
  EXPECT_EQ(server.connections(), 1) << "a connection is used again";
}

TEST_F(HttpClientTest, ReadsEveryFormOfAnswer) {
  struct Case {
    std::string name, bytes;
    int status;
    std::string body;
  };
  const Case cases[]{
      {"chunked, with a trailer",
       "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
       "2\r\nab\r\n1;x=y\r\nc\r\n0\r\nX-Kind: late\r\n\r\n",
       200, "abc"},
      {"without a body", "HTTP/1.1 204 No Content\r\n\r\n", 204, ""},
      {"behind an interim answer",
       "HTTP/1.1 103 Early Hints\r\nX-Kind: early\r\n\r\n"
       "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\na",
       200, "a"},
      {"cut inside a character", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\na\xC3", 200, "a\xC3"},
      {"a redirect to nowhere", "HTTP/1.1 302 Found\r\nContent-Length: 1\r\n\r\nx", 302, "x"},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    const HttpServer server(sending(one.bytes));
    const auto result = get(server.url());
    ASSERT_TRUE(result) << result.error().description;
    EXPECT_EQ(result->status, one.status);
    EXPECT_EQ(result->body, one.body);
    EXPECT_EQ(result->header("x-kind"), nullptr);
  }
}

TEST_F(HttpClientTest, SaysWhatWasWrongWithTheAnswer) {
  struct Case {
    std::string name;
    HttpServer::Handler handler;
    Kind kind;
    std::string words;
  };
  const Case cases[]{
      {"a body shorter than promised", sending("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc"),
       Kind::connectionLost, "The connection to 127.0.0.1:"},
      {"closed before the answer", sending(""), Kind::connectionLost, "was lost."},
      {"reset",
       [](ServerConnection& connection) {
         connection.read();
         connection.reset();
       },
       Kind::connectionLost, "was lost."},
      {"no HTTP", sending("220 mail.example ESMTP\r\n"), Kind::badAnswer, "not valid HTTP"},
      {"an impossible chunk",
       sending("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\nabc\r\n"),
       Kind::connectionLost, "was lost."},
      {"an endless head",
       [](ServerConnection& connection) {
         connection.read();
         connection.send("HTTP/1.1 200 OK\r\n");
         while (connection.send("X-Filler: " + std::string(1000, 'x') + "\r\n")) {
         }
       },
       Kind::badAnswer, "too long a head"},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    const HttpServer server(one.handler);
    expectError(get(server.url("/secret")), one.kind, one.words);
  }
}

TEST_F(HttpClientTest, SaysWhyThereIsNoConnection) {
  const auto port = std::to_string(closedPort());
  expectError(get("http://127.0.0.1:" + port + "/secret"), Kind::cannotConnect,
              "Could not connect to 127.0.0.1:" + port + ": Connection refused.");
  // A label of more than 63 characters is refused before any server of names is asked.
  const std::string name = std::string(70, 'x') + ".invalid";
  expectError(get("http://" + name), Kind::cannotFindHost, "No server named " + name);
}

TEST_F(HttpClientTest, RefusesRequestsThatCouldNotBeSentAsTheyAre) {
  const HttpServer server(sending("HTTP/1.1 200 OK\r\n\r\n"));
  for (const auto& url : {std::string("ftp://127.0.0.1/"), std::string("file:///etc/passwd"),
                          std::string("127.0.0.1"), server.url("/a b"), server.url("/\r\nX: y")}) {
    expectError(get(url), Kind::invalidRequest, "The address is not a valid HTTP URL.");
  }
  const HttpHeader wrong[]{
      {"X", "a\r\nY: b"}, {"X", std::string("a\0b", 3)}, {"X:", "a"}, {"", "a"}, {"X Y", "a"}};
  for (const auto& header : wrong) {
    expectError(send({.url = server.url(), .headers = {header}}), Kind::invalidRequest, "header");
  }
  expectError(send({.method = "GET / HTTP/1.1\r\nX:", .url = server.url()}), Kind::invalidRequest,
              "method");
  EXPECT_EQ(server.connections(), 0);
}

TEST_F(HttpClientTest, GivesUpOnAServerThatFallsSilent) {
  for (const std::string sent : {"", "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc"}) {
    const HttpServer server([&](ServerConnection& connection) {
      connection.read();
      connection.send(sent);
      connection.awaitClose();
    });
    const auto start = loop_.uptime();
    expectError(send({.url = server.url(), .requestTimeout = 150ms}), Kind::timedOut,
                "did not answer within 0.15 seconds.");
    EXPECT_GE(loop_.uptime() - start, 150ms);
  }
}

TEST_F(HttpClientTest, CountsSilenceAfreshFromEveryByte) {
  // Together longer than the limit, and each far shorter, so that a busy machine may stumble.
  constexpr int steps = 6;
  std::counting_semaphore<> step(0);
  const HttpServer server([&](ServerConnection& connection) {
    connection.read();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\n");
    for (int sent = 0; sent < steps; ++sent) {
      step.acquire();
      connection.send("x");
    }
  });
  const Timer pace = loop_.every(500ms, [&] { step.release(); });
  const auto result = send({.url = server.url(), .requestTimeout = 2500ms});
  step.release(steps);  // let go of the server, whatever happened
  ASSERT_TRUE(result) << result.error().description;
  EXPECT_EQ(result->body, "xxxxxx");
}

TEST_F(HttpClientTest, LimitsTheWholeOfARequestHoweverBusyItIs) {
  const HttpServer server([](ServerConnection& connection) {
    connection.read();
    connection.send("HTTP/1.1 200 OK\r\n\r\n");
    while (connection.send(std::string(1000, 'x'))) {
    }
  });
  expectError(send({.url = server.url(),
                    .resourceTimeout = 200ms,
                    .longestBody = 10,
                    .excess = HttpRequest::Excess::drop}),
              Kind::timedOut, "did not finish within 0.2 seconds.");
}

TEST_F(HttpClientTest, BoundsTheBody) {
  const HttpServer server(HttpServer::answering(
      [](auto& connection, const auto&) { connection.answer(500, std::string(100'000, 'x')); }));
  const auto whole = send({.url = server.url(), .longestBody = 100'000});
  ASSERT_TRUE(whole);
  EXPECT_EQ(whole->body.size(), 100'000U);
  expectError(send({.url = server.url(), .longestBody = 99'999}), Kind::tooLarge,
              "sent more than the 99999 bytes allowed.");
  const auto first =
      send({.url = server.url(), .longestBody = 4'096, .excess = HttpRequest::Excess::drop});
  ASSERT_TRUE(first) << first.error().description;
  EXPECT_EQ(first->status, 500);
  EXPECT_EQ(first->body, std::string(4'096, 'x'));
}

TEST_F(HttpClientTest, UsesTheProxyOfTheEnvironmentButNeverForThisMachine) {
  std::string seen;
  const HttpServer proxy(HttpServer::answering([&](auto& connection, const auto& request) {
    seen = request.target;
    connection.answer(200, "proxy");
  }));
  const HttpServer server(HttpServer::answering(
      [](auto& connection, const auto&) { connection.answer(200, "server"); }));
  Environment environment;
  environment.set("http_proxy", proxy.url());
  environment.set("NO_PROXY", std::nullopt);
  for (const auto& exceptions : {std::optional<std::string>(), std::optional<std::string>("a.b")}) {
    environment.set("no_proxy", exceptions);
    HttpClient client(loop_);
    const auto outside = send(client, {.url = "http://somewhere.invalid/x"});
    ASSERT_TRUE(outside) << outside.error().description;
    EXPECT_EQ(outside->body, "proxy");
    EXPECT_EQ(seen, "http://somewhere.invalid/x");
    for (const std::string host : {"127.0.0.1", "localhost"}) {
      const auto inside =
          send(client, {.url = "http://" + host + ":" + std::to_string(server.port()) + "/"});
      ASSERT_TRUE(inside) << inside.error().description;
      EXPECT_EQ(inside->body, "server") << host;
    }
  }
}

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
    client.send({.url = "nonsense"}, count);    // is answered, and waits for its turn
  }
  transfer->cancel();
  runUntil([&] { return cancelled == 3; });
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
