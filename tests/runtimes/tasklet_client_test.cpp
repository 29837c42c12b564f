#include "runtimes/tasklet/tasklet_client.h"

#include <gmock/gmock.h>

#include "platform/values/uuid.h"
#include "support/http_client_fixture.h"
#include "support/http_server.h"

namespace vantrell::tests {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

using PromptResult = std::expected<JsonObject, AgentError>;

/// A workflow service on loopback, behind TLS, and a client that is set up for it.
class TaskletClientTest : public HttpClientFixture {
 protected:
  void serve(HttpServer::Handler handler) {
    tasklet_.reset();
    server_ = std::make_unique<HttpServer>(std::move(handler), authority_.server());
    tasklet_ = TaskletClient::make(*Url::parse(server_->url("/hook/secret?key=1")), "My Project",
                                   loop_, http_, limits_);
    tasklet_->onSessionUpdate = [this](const JsonObject& update) { updates_.push_back(update); };
    updates_.clear();
  }
  void serveAnswer(int status, std::string body, std::string headers = {}) {
    serve(HttpServer::answering([=](ServerConnection& connection, const ReceivedRequest&) {
      connection.answer(status, body, headers);
    }));
  }
  std::string start(std::optional<std::string> existing = std::nullopt) {
    std::optional<AgentStartResult> result;
    tasklet_->start(std::move(existing), [&](auto started) { result = *started; });
    EXPECT_FALSE(result) << "completed inside the call";
    runUntil([&] { return result.has_value(); });
    EXPECT_FALSE(result->replayedSession);
    return result->sessionId;
  }
  PromptResult prompt(const std::string& text = "Do it") {
    begin(text);
    runUntil([&] { return result_.has_value(); });
    return *result_;
  }
  void begin(const std::string& text = "Do it") {
    result_.reset();
    tasklet_->sendPrompt(text, [this](PromptResult result) {
      EXPECT_FALSE(result_) << "completed twice";
      result_ = std::move(result);
    });
    EXPECT_TRUE(updates_.empty()) << "told inside the call";
  }
  /// Kind, title and status of each update.
  std::vector<std::string> told() const {
    std::vector<std::string> lines;
    for (const auto& update : updates_) {
      lines.push_back(json::textOr(update, "sessionUpdate", "") + "|" +
                      json::textOr(update, "title", "") + "|" + json::textOr(update, "status", ""));
    }
    return lines;
  }
  void expectRejection(const PromptResult& result, const std::string& message) {
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().localizedDescription(), message);
    ASSERT_TRUE(result.error().runtimeError());
    EXPECT_EQ(result.error().runtimeError()->provider, AgentProvider::tasklet);
    EXPECT_EQ(result.error().runtimeError()->kind, AgentRuntimeError::Kind::protocolError);
    EXPECT_FALSE(isUsageLimitFailure(result.error()));
    EXPECT_THAT(told(), ElementsAre(begins_, rejected_));
  }

  const std::string begins_ = "tool_call|Dispatching to Tasklet|in_progress";
  const std::string accepted_ = "tool_call_update|Tasklet handoff accepted|completed";
  const std::string rejected_ = "tool_call_update|Tasklet handoff rejected|failed";
  const std::string failed_ = "tool_call_update|Tasklet handoff failed|failed";

  const CertificateAuthority authority_;
  HttpClient http_{loop_, {.extraAuthorities = authority_.pem()}};
  TaskletLimits limits_;
  std::vector<JsonObject> updates_;
  std::optional<PromptResult> result_;
  std::shared_ptr<TaskletClient> tasklet_;
  std::unique_ptr<HttpServer> server_;
};

TEST_F(TaskletClientTest, HandsThePromptOverAndSaysSo) {
  std::vector<ReceivedRequest> seen;
  serve(HttpServer::answering([&](auto& connection, const auto& request) {
    seen.push_back(request);
    connection.answer(202, R"({"queued":true})");
  }));
  EXPECT_TRUE(Uuid::parse(start()));
  const std::string session = start("old-session");
  EXPECT_EQ(session, "old-session");
  EXPECT_EQ(start(""), session) << "an empty id is none";
  EXPECT_EQ(server_->connections(), 0) << "starting sends nothing";
  const Date before = loop_.now();
  const auto result = prompt("Fix \"it\"\nplease ä");

  ASSERT_TRUE(result) << result.error().localizedDescription();
  EXPECT_EQ(*result, (JsonObject{{"accepted", true}, {"status", 202}}));
  ASSERT_EQ(seen.size(), 1U);
  EXPECT_EQ(seen[0].method + " " + seen[0].target, "POST /hook/secret?key=1");
  EXPECT_EQ(seen[0].headers["content-type"], "application/json");
  EXPECT_EQ(seen[0].headers["user-agent"], "vantrell");
  auto body = json::parseObject(seen[0].body);
  ASSERT_TRUE(body);
  const auto requestedAt = dateFromIso8601(json::textOr(*body, "requested_at", ""));
  ASSERT_TRUE(requestedAt);
  EXPECT_LT(std::abs((*requestedAt - before).count()), 60);
  EXPECT_THAT(*json::text(*body, "requested_at"), testing::MatchesRegex("....-..-..T..:..:..Z"));
  body->remove("requested_at");
  EXPECT_EQ(*body, (JsonObject{{"event", "vantrell.task.requested"},
                               {"source", "vantrell"},
                               {"session_id", session},
                               {"workspace", "My Project"},
                               {"prompt", "Fix \"it\"\nplease ä"}}));

  EXPECT_THAT(told(), ElementsAre(begins_, accepted_, "agent_message_chunk||"));
  EXPECT_EQ(updates_[0], (JsonObject{{"sessionUpdate", "tool_call"},
                                     {"toolCallId", "tasklet-dispatch-" + session},
                                     {"title", "Dispatching to Tasklet"},
                                     {"status", "in_progress"},
                                     {"rawInput", JsonObject{{"workspace", "My Project"}}}}));
  EXPECT_EQ(*json::text(updates_[1], "toolCallId"), "tasklet-dispatch-" + session);
  EXPECT_THAT(*json::text(updates_[2], "messageId"), StartsWith("tasklet-" + session + "-"));
  EXPECT_EQ(*json::text(*json::object(updates_[2], "content"), "text"),
            "Tasklet accepted this background task. Track its workflow and results in Tasklet.");
}

TEST_F(TaskletClientTest, ShowsWhatARefusalSays) {
  struct Case {
    std::string name;
    int status;
    std::string body, shown;
  };
  const std::string none = "No response body";
  for (const auto& one : {
           Case{"words of a used-up allowance", 429, "quota: rate limit", "quota: rate limit"},
           Case{"nothing", 500, "", none},
           Case{"a character up to the cut", 500, std::string(4094, 'x') + "ää",
                std::string(4094, 'x') + "ä"},
           Case{"a character across the cut", 500, std::string(4095, 'x') + "ää", none},
       }) {
    SCOPED_TRACE(one.name);
    serveAnswer(one.status, one.body);
    expectRejection(
        prompt(), "Tasklet webhook returned HTTP " + std::to_string(one.status) + ": " + one.shown);
  }
}

TEST_F(TaskletClientTest, TakesThePromptNowhereElse) {
  const HttpServer other(
      HttpServer::answering([](auto& connection, const auto&) { connection.answer(200, ""); }),
      authority_.server());
  for (const int status : {302, 307}) {
    serveAnswer(status, "moved", "Location: " + other.url() + "\r\n");
    expectRejection(prompt(),
                    "Tasklet webhook returned HTTP " + std::to_string(status) + ": moved");
  }
  EXPECT_EQ(other.connections(), 0);
}

TEST_F(TaskletClientTest, ReportsThatTheHookIsOutOfReach) {
  limits_.request = 200ms;
  serve([](ServerConnection& connection) { connection.awaitClose(); });
  const auto result = prompt();
  ASSERT_FALSE(result);
  EXPECT_THAT(result.error().localizedDescription(),
              HasSubstr(" did not answer within 0.2 seconds."));
  EXPECT_THAT(result.error().localizedDescription(), Not(HasSubstr("secret")));
  EXPECT_FALSE(result.error().runtimeError()) << "it is the way that failed, not the webhook";
  EXPECT_FALSE(isUsageLimitFailure(result.error()));
  EXPECT_FALSE(result.error().isDisconnection());
  EXPECT_THAT(told(), ElementsAre(begins_, failed_));
}

TEST_F(TaskletClientTest, EndsATurnThatIsCancelledAndTakesAnother) {
  std::atomic<int> asked = 0;
  serve([&](ServerConnection& connection) {
    while (connection.read()) {
      if (++asked > 1) connection.answer(200, "");
    }
  });
  tasklet_->cancel();  // nothing to cancel
  begin();
  runUntil([&] { return asked > 0; });
  tasklet_->cancel();
  runUntil([&] { return result_.has_value(); });
  ASSERT_FALSE(*result_);
  EXPECT_FALSE(result_->error().isDisconnection());
  EXPECT_THAT(told(), ElementsAre(begins_, failed_));
  updates_.clear();
  EXPECT_TRUE(prompt());
}

TEST_F(TaskletClientTest, FailsWhatIsPendingAsDisconnectedWhenItIsStopped) {
  bool isTold = false;
  for (const bool destroys : {false, true}) {
    SCOPED_TRACE(destroys);
    std::atomic<bool> wasAsked = false;
    serve([&](ServerConnection& connection) {
      connection.read();
      wasAsked = true;
      connection.awaitClose();
    });
    tasklet_->onUnexpectedTermination = [&](const std::string&) { isTold = true; };
    begin();
    runUntil([&] { return wasAsked.load(); });
    destroys ? tasklet_.reset() : tasklet_->stop();
    runUntil([&] { return result_.has_value(); });
    ASSERT_FALSE(*result_);
    EXPECT_TRUE(result_->error().isDisconnection());
    if (destroys) break;
    updates_.clear();
    EXPECT_FALSE(prompt()) << "it is not used again";
    EXPECT_TRUE(result_->error().isDisconnection());
  }
  EXPECT_FALSE(isTold);
}

}  // namespace
}  // namespace vantrell::tests
