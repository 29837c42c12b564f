// A loop with an HTTP client on it, for tests of what goes over real sockets.
#pragma once

#include <gtest/gtest.h>
#include <optional>
#include <thread>

#include "platform/http/http_client.h"
#include "platform/queues/run_loop.h"

namespace vantrell::tests {

using HttpResult = std::expected<HttpResponse, HttpError>;

class HttpClientFixture : public testing::Test {
 protected:
  /// Runs the loop until the condition holds. Whatever makes it hold must do so on the loop.
  void runUntil(const std::function<bool()>& condition) {
    bool isOver = false;
    const Timer limit = loop_.after(std::chrono::seconds(30), [&] { isOver = true; });
    const Timer look = loop_.every(std::chrono::milliseconds(1), [&] {
      if (isOver || condition()) loop_.quit();
    });
    if (!condition()) loop_.run();
    EXPECT_FALSE(isOver) << "what was waited for did not come";
  }

  /// Sends and waits for the result.
  HttpResult send(HttpClient& client, HttpRequest request) {
    std::optional<HttpResult> result;
    const auto main = std::this_thread::get_id();
    client.send(std::move(request), [&](HttpResult answer) {
      EXPECT_FALSE(result) << "completed twice";
      EXPECT_EQ(std::this_thread::get_id(), main);
      result = std::move(answer);
    });
    EXPECT_FALSE(result) << "completed inside the call";
    runUntil([&] { return result.has_value(); });
    return result.value_or(std::unexpected(HttpError{}));
  }
  HttpResult send(HttpRequest request) { return send(client_, std::move(request)); }
  HttpResult get(const std::string& url) { return send({.url = url}); }

  RunLoop loop_;
  HttpClient client_{loop_};
};

}  // namespace vantrell::tests
