#include "runtimes/local/local_runtime_detector.h"

#include <gmock/gmock.h>

#include "platform/storage/user_defaults.h"
#include "support/http_client_fixture.h"
#include "support/http_server.h"

namespace vantrell::tests {
namespace {

using LocalRuntimeService::Probe;
using testing::ElementsAre;
using testing::HasSubstr;

/// A model server: answers its list's path with the body, everything else with 404.
HttpServer::Handler listing(std::string path, std::string body, int status = 200) {
  return HttpServer::answering([=](ServerConnection& connection, const ReceivedRequest& request) {
    const bool isList = request.method == "GET" && request.target == path;
    connection.answer(isList ? status : 404, isList ? body : "not here");
  });
}

class LocalRuntimeDetection : public HttpClientFixture {
 protected:
  void configure(const std::string& kind, const std::string& url) {
    defaults_->setText(LocalRuntimeService::kindKey, kind);
    defaults_->setText(LocalRuntimeService::baseURLKey, url);
  }
  /// The labels of the statuses that a refresh goes through.
  std::vector<std::string> refresh() {
    std::vector<std::string> labels;
    detector_->onChange = [&] { labels.push_back(detector_->status().label()); };
    detector_->refresh();
    runUntil([&] { return !detector_->status().isChecking(); });
    detector_->onChange = nullptr;
    return labels;
  }
  std::string reasonAfterRefresh() {
    refresh();
    const auto* reason = detector_->status().reason();
    return reason ? *reason : "ready";
  }
  std::string reasonOf(std::vector<Probe> probes) {
    std::optional<LocalRuntimeStatus> end;
    detectLocalRuntime(client_, std::move(probes), [&](auto status) { end = std::move(status); });
    runUntil([&] { return end.has_value(); });
    return end->reason() ? *end->reason() : end->label();
  }

  std::unique_ptr<UserDefaults> defaults_ = UserDefaults::inMemory();
  std::shared_ptr<LocalRuntimeDetector> detector_ = LocalRuntimeDetector::make(*defaults_, client_);
};

TEST_F(LocalRuntimeDetection, SaysWhyNothingWasFound) {
  struct Case {
    std::string kind, body;
    int status;
    std::string reason;
  };
  const std::string noModels = "The runtime answered, but it did not report any loaded models.";
  for (const auto& one :
       {Case{"custom", R"({"data":[]})", 200, noModels}, Case{"custom", "[]", 200, noModels},
        Case{"custom", "<html>", 200, "Local runtime returned HTTP 200."},
        Case{"lm_studio", "", 204, "LM Studio returned HTTP 204."},
        Case{"lm_studio", R"({"data":[{"id":"m"}]})", 500, "LM Studio returned HTTP 500."},
        Case{"ollama", "{}", 200, "Ollama returned HTTP 404."}}) {
    SCOPED_TRACE(one.reason);
    const HttpServer server(listing("/v1/models", one.body, one.status));
    configure(one.kind, server.url());
    EXPECT_EQ(reasonAfterRefresh(), one.reason);
    EXPECT_EQ(detector_->status().label(), "Not detected");
  }
  const HttpServer models(listing("/v1/models", R"({"data":[{"id":"m"}]})"));
  const HttpServer elsewhere(HttpServer::answering([&](auto& connection, const auto&) {
    connection.answer(307, "", "Location: " + models.url() + "/v1/models\r\n");
  }));
  configure("custom", elsewhere.url());
  EXPECT_EQ(reasonAfterRefresh(), "Local runtime returned HTTP 307.");
  const auto port = std::to_string(closedPort());
  configure("custom", "http://127.0.0.1:" + port);
  EXPECT_EQ(reasonAfterRefresh(),
            "Could not connect to 127.0.0.1:" + port + ": Connection refused.");
}

TEST_F(LocalRuntimeDetection, GivesUpOnASilentServer) {
  const HttpServer server([](ServerConnection& connection) { connection.awaitClose(); });
  configure("custom", server.url());
  const auto start = loop_.uptime();
  EXPECT_THAT(reasonAfterRefresh(), HasSubstr("did not answer within 2.5 seconds."));
  EXPECT_GE(loop_.uptime() - start, std::chrono::milliseconds(2'500));
}

TEST_F(LocalRuntimeDetection, TakesTheFirstPlaceThatHasModelsAndTheLastMessageOtherwise) {
  const HttpServer full(listing("/full", R"({"data":[{"id":"m"}]})"));
  const auto probe = [&](const std::string& name, const std::string& path) {
    return Probe{LocalRuntimeKind::lmStudio, name, *Url::parse(full.url(path)),
                 *Url::parse(full.url())};
  };
  EXPECT_EQ(reasonOf({probe("First", "/gone"), probe("Second", "/full"), probe("Third", "/full")}),
            "Second · 1 model");
  EXPECT_EQ(reasonOf({probe("First", "/gone"), probe("Second", "/gone")}),
            "Second returned HTTP 404.");
}

TEST_F(LocalRuntimeDetection, LetsTheDetectionThatEndsLastDecide) {
  std::atomic<ServerConnection*> slow = nullptr;
  const HttpServer first([&](ServerConnection& connection) {
    connection.read();
    slow = &connection;
    connection.awaitClose();
  });
  const HttpServer second(listing("/v1/models", R"({"data":[{"id":"m"}]})"));
  configure("lm_studio", first.url());
  detector_->refresh();
  runUntil([&] { return slow.load() != nullptr; });
  configure("custom", second.url());
  refresh();
  EXPECT_EQ(detector_->status().label(), "Local runtime · 1 model");
  EXPECT_EQ(detector_->status().connection()->baseURL.text(), second.url("/v1"));
  EXPECT_EQ(detector_->status().connection()->kind, LocalRuntimeKind::custom);
  slow.load()->answer(503, "");
  runUntil([&] { return detector_->status().reason() != nullptr; });
  EXPECT_EQ(*detector_->status().reason(), "LM Studio returned HTTP 503.");
}

}  // namespace
}  // namespace vantrell::tests
