#include "gateway/personal_gateway.h"

#include <atomic>
#include <future>
#include <gmock/gmock.h>

#include "support/gateway_parts.h"
#include "support/http_client_fixture.h"
#include "support/http_server.h"

namespace vantrell::tests {
namespace {

using testing::HasSubstr;

class PersonalGatewayTest : public HttpClientFixture {
 protected:
  void SetUp() override { ASSERT_TRUE(parts_.module.server.start("127.0.0.1", 0)); }

  HttpRequest request(const std::string& method, const std::string& path,
                      const std::string& body = {}) {
    return {.method = method,
            .url = "http://127.0.0.1:" + std::to_string(parts_.module.server.port()) + path,
            .headers = {{"Authorization", "Bearer " + parts_.key}},
            .body = body};
  }
  /// "404 not_found", or the status alone where it is no error.
  std::string outcome(HttpRequest request) {
    const auto result = send(std::move(request));
    if (!result) return result.error().description;
    auto text = std::to_string(result->status);
    const auto body = json::parseObject(result->body);
    const auto* error = body ? json::object(*body, "error") : nullptr;
    return error ? text + " " + json::textOr(*error, "code", "") : text;
  }

  GatewayParts parts_{loop_};
};

const std::string chat = "/openai/v1/chat/completions";
const std::string question = R"({"messages":[{"role":"user","content":"Hi"}]})";

TEST_F(PersonalGatewayTest, ChecksComeInTheirOrder) {
  auto browser = request("GET", "/v1/projects");
  browser.headers.push_back({"Origin", "https://example.invalid"});
  EXPECT_EQ(outcome(browser), "403 browser_clients_disabled");
  browser.headers.erase(browser.headers.begin());
  EXPECT_EQ(outcome(browser), "403 browser_clients_disabled");

  auto stranger = request("GET", "/openai/v1/models");
  stranger.headers[0].value = "Bearer vtl_x";
  EXPECT_EQ(outcome(stranger), "401 invalid_site_key");

  auto other = request("GET", "/openai/v1/models");
  other.headers = {{"X-API-Key", parts_.keyWithoutLocal}};
  EXPECT_EQ(outcome(other), "403 local_provider_not_allowed");

  EXPECT_EQ(outcome(request("GET", "/v1/projects")), "200");
  EXPECT_EQ(outcome(request("GET", "/openai/v1/chat/completions")), "404 not_found");
  parts_.providers.localStatus = LocalRuntimeStatus::unavailable("gone");
  EXPECT_EQ(outcome(request("POST", chat, question)), "503 local_runtime_unavailable");
  EXPECT_EQ(parts_.providers.localRefreshes, 1) << "it may have been started meanwhile";
}

TEST_F(PersonalGatewayTest, TellsFleetsHowItIsWhereItServesThem) {
  auto status = request("GET", "/v1/fleet/status");
  status.headers.clear();
  EXPECT_EQ(outcome(status), "401 invalid_site_key");
  parts_.module.gateway.serveFleet([] { return JsonObject{{"name", "build"}}; });
  const auto answer = send(status);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->body, R"({"name":"build"})");
  status.headers = {{"Origin", "https://example.invalid"}};
  EXPECT_EQ(outcome(status), "403 browser_clients_disabled");
}

TEST_F(PersonalGatewayTest, AQuestionGoesToTheRuntimeAndAThirdAtOnceIsRefused) {
  std::promise<void> release;
  auto released = release.get_future().share();
  std::atomic<int> asked = 0;
  const HttpServer runtime([&](ServerConnection& connection) {
    while (const auto received = connection.read()) {
      ++asked;
      released.wait();
      connection.answer(200,
                        R"({"choices":[{"message":{"content":")" + received->target + "\"}}]}");
    }
  });
  parts_.serveModels(runtime.url("/v1"), {"m"});
  std::vector<HttpResult> results;
  for (int each = 0; each < 2; ++each) {
    client_.send(request("POST", chat, question),
                 [&](HttpResult result) { results.push_back(std::move(result)); });
  }
  runUntil([&] { return asked == 2; });
  EXPECT_EQ(outcome(request("POST", chat, question)), "429 local_runtime_busy");
  EXPECT_EQ(outcome(request("GET", "/xai/v1/models")), "429 local_runtime_busy");
  release.set_value();
  runUntil([&] { return results.size() == 2; });
  for (const auto& result : results) {
    ASSERT_TRUE(result);
    EXPECT_THAT(result->body, HasSubstr(R"("content":"/v1/chat/completions")"));
    EXPECT_EQ(*result->header("X-Vantrell-Model"), "m");
  }
  EXPECT_EQ(outcome(request("GET", "/xai/v1/models")), "200");
}

TEST_F(PersonalGatewayTest, ListensAsItsConfigurationSays) {
  auto& gateway = parts_.module.gateway;
  const auto state = [&](GatewayServer::Phase phase) {
    runUntil([&] { return gateway.state().phase == phase; });
  };
  using enum GatewayServer::Phase;
  const auto taken = parts_.module.server.port();
  ASSERT_TRUE(gateway.setPort(taken)) << "only stored so far";
  gateway.start();
  ASSERT_TRUE(gateway.setEnabled(false));
  state(stopped);
  const auto blocker = TcpListener::bind("127.0.0.1", taken);
  ASSERT_TRUE(blocker) << "the port is free at once";
  EXPECT_EQ(gateway.setPort(80).error().sentence, "Choose a port between 1024 and 65535.");
  ASSERT_TRUE(gateway.setPort(taken));
  const auto refused = gateway.setEnabled(true);
  ASSERT_FALSE(refused);
  EXPECT_THAT(refused.error().sentence, HasSubstr("Address already in use"));
  state(failed);
  EXPECT_EQ(gateway.lastError(), refused.error().sentence);
  ASSERT_TRUE(gateway.createKey("new", {{"/"}, {AgentProvider::codex}, {}}));
  EXPECT_EQ(gateway.lastError(), std::nullopt);
  (*blocker)->close();
  ASSERT_TRUE(gateway.setListenMode(GatewayListenMode::privateNetwork));
  state(listening);
  EXPECT_EQ(gateway.lastError(), std::nullopt);
  EXPECT_EQ(outcome(request("GET", "/v1/projects")), "200");
  EXPECT_THAT(gateway.baseURL(), HasSubstr(":" + std::to_string(taken)));
  ASSERT_TRUE(gateway.setListenMode(GatewayListenMode::localhost)) << "on the same port";
  state(listening);
  EXPECT_EQ(outcome(request("GET", "/v1/projects")), "200");
}

}  // namespace
}  // namespace vantrell::tests
