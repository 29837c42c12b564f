#include "gateway/compatibility_response.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>

#include "platform/values/json.h"

namespace vantrell {
namespace {

const Date now = Date::sinceUnixEpoch(1'800'000'000.7);
const std::string answer =
    R"({"id":"x1","created":5,"model":"b","choices":[{"finish_reason":"length",
        "message":{"content":"Hi"}}],"usage":{"prompt_tokens":3,"completion_tokens":4}})";
const std::string toolAnswer =
    R"({"choices":[{"message":{"content":null,"tool_calls":[
        {"id":"c1","type":"function","function":{"name":"f","arguments":"{\"x\":1}"}},
        {"function":{"name":"g","arguments":"not JSON"}}]}}]})";

/// The body with every made-up id as "msg_*", since those are random.
std::string translated(const std::string& body, CompatibilityRoute route, bool stream) {
  const auto response = translateCompatibility(
      body, {.route = route, .requestedModel = "gpt", .actualModel = "b", .stream = stream}, now);
  EXPECT_EQ(response.contentType,
            stream ? "text/event-stream; charset=utf-8" : "application/json; charset=utf-8");
  EXPECT_EQ(response.headers.at("X-Vantrell-Backend"), "local");
  EXPECT_EQ(response.headers.at("X-Vantrell-Model"), "b");
  EXPECT_EQ(response.headers.at("X-Vantrell-Requested-Model"), "gpt");
  static const std::regex ids("(chatcmpl|resp|msg|call)_[0-9a-f]{32}");
  return std::regex_replace(response.body, ids, "$1_*");
}

TEST(CompatibilityResponse, ChatCompletions) {
  using enum CompatibilityRoute;
  EXPECT_EQ(*json::parse(translated(answer, openAIChat, false)),
            *json::parse(R"({"id":"x1","object":"chat.completion","created":5,"model":"gpt",
                "choices":[{"finish_reason":"length","message":{"content":"Hi"}}],
                "usage":{"prompt_tokens":3,"completion_tokens":4}})"));
  EXPECT_EQ(translated(answer, openAIChat, true),
            R"(data: {"id":"x1","object":"chat.completion.chunk","created":5,"model":"gpt",)"
            R"("choices":[{"index":0,"delta":{"content":"Hi","role":"assistant"},)"
            R"("finish_reason":"length"}]})"
            "\n\ndata: [DONE]\n\n");
  EXPECT_EQ(
      translated(toolAnswer, openAIChat, true),
      R"(data: {"id":"chatcmpl_*","object":"chat.completion.chunk","created":1800000000,)"
      R"("model":"gpt","choices":[{"index":0,"delta":{"content":null,"tool_calls":[)"
      R"({"id":"c1","type":"function","function":{"name":"f","arguments":"{\"x\":1}"},"index":0},)"
      R"({"function":{"name":"g","arguments":"not JSON"},"index":1}],"role":"assistant"},)"
      R"("finish_reason":"stop"}]})"
      "\n\ndata: [DONE]\n\n");
}

const std::string responseStart =
    R"({"id":"resp_*","object":"response","created_at":1800000000,"status":"completed",)"
    R"("model":"gpt","output":[)";

TEST(CompatibilityResponse, Responses) {
  using enum CompatibilityRoute;
  const auto whole = responseStart +
                     R"({"id":"msg_*","type":"message","status":"completed","role":"assistant",)"
                     R"("content":[{"type":"output_text","text":"Hi","annotations":[]}]}],)"
                     R"("parallel_tool_calls":true,)"
                     R"("usage":{"input_tokens":3,"output_tokens":4,"total_tokens":7}})";
  EXPECT_EQ(translated(answer, openAIResponses, false), whole);
  EXPECT_EQ(translated(toolAnswer, openAIResponses, false),
            responseStart +
                R"({"id":"c1","type":"function_call","status":"completed","call_id":"c1",)"
                R"("name":"f","arguments":"{\"x\":1}"},)"
                R"({"id":"call_*","type":"function_call","status":"completed","call_id":"call_*",)"
                R"("name":"g","arguments":"not JSON"}],"parallel_tool_calls":true,)"
                R"("usage":{"input_tokens":0,"output_tokens":0,"total_tokens":0}})");
  EXPECT_EQ(translated(answer, openAIResponses, true),
            "event: response.created\n"
            R"(data: {"type":"response.created","sequence_number":0,"response":{"id":"resp_*",)"
            R"("object":"response","status":"in_progress","model":"gpt"}})"
            "\n\nevent: response.output_text.delta\n"
            R"(data: {"type":"response.output_text.delta","sequence_number":1,"item_id":"msg_*",)"
            R"("output_index":0,"content_index":0,"delta":"Hi"})"
            "\n\nevent: response.completed\n"
            R"(data: {"type":"response.completed","sequence_number":2,"response":)" +
                whole + "}\n\n");
}

TEST(CompatibilityResponse, Messages) {
  using enum CompatibilityRoute;
  const std::string start =
      R"({"id":"msg_*","type":"message","role":"assistant","model":"gpt","content":)";
  EXPECT_EQ(translated(answer, anthropicMessages, false),
            start +
                R"([{"type":"text","text":"Hi"}],"stop_reason":"end_turn","stop_sequence":null,)"
                R"("usage":{"input_tokens":3,"output_tokens":4}})");
  const std::string tool = R"({"type":"tool_use","id":"c1","name":"f","input":{"x":1}})";
  const std::string second = R"({"type":"tool_use","id":"call_*","name":"g","input":{}})";
  EXPECT_EQ(translated(toolAnswer, anthropicMessages, false),
            start + "[" + tool + "," + second +
                R"(],"stop_reason":"tool_use","stop_sequence":null,)"
                R"("usage":{"input_tokens":0,"output_tokens":0}})");
  const auto event = [](const std::string& type, const std::string& rest = {}) {
    return "event: " + type + "\ndata: {\"type\":\"" + type + "\"" + rest + "}\n\n";
  };
  const auto messageStart = [&](const std::string& input) {
    return event("message_start", R"(,"message":)" + start +
                                      R"([],"stop_reason":null,"stop_sequence":null,)"
                                      R"("usage":{"input_tokens":)" +
                                      input + R"(,"output_tokens":0}})");
  };
  const auto end = [&](const std::string& reason, const std::string& output) {
    return event("message_delta", R"(,"delta":{"stop_reason":")" + reason +
                                      R"(","stop_sequence":null},"usage":{"output_tokens":)" +
                                      output + "}") +
           event("message_stop");
  };
  EXPECT_EQ(
      translated(answer, anthropicMessages, true),
      messageStart("3") +
          event("content_block_start", R"(,"index":0,"content_block":{"type":"text","text":""})") +
          event("content_block_delta", R"(,"index":0,"delta":{"type":"text_delta","text":"Hi"})") +
          event("content_block_stop", R"(,"index":0)") + end("end_turn", "4"));
  EXPECT_EQ(translated(toolAnswer, anthropicMessages, true),
            messageStart("0") +
                event("content_block_start", R"(,"index":0,"content_block":)" + tool) +
                event("content_block_stop", R"(,"index":0)") +
                event("content_block_start", R"(,"index":1,"content_block":)" + second) +
                event("content_block_stop", R"(,"index":1)") + end("tool_use", "0"));
}

TEST(CompatibilityResponse, CountsOfTokensMayBeAnything) {
  const auto response = translateCompatibility(
      R"({"choices":[{"message":{"content":"a"}}],"usage":{"prompt_tokens":9223372036854775807,)"
      R"("completion_tokens":2}})",
      {.route = CompatibilityRoute::openAIResponses}, Date(0));
  EXPECT_TRUE(response.body.contains(R"("total_tokens":9223372036854775807)")) << response.body;
}

TEST(CompatibilityResponse, FailuresOfTheRuntimeHaveTheirOwnErrors) {
  using Result = std::expected<HttpResponse, HttpError>;
  const auto ok = [](std::string body) { return Result({200, {}, std::move(body)}); };
  const auto failed = [](HttpError::Kind kind) {
    return Result(std::unexpected(HttpError{kind, "Why."}));
  };
  const std::string noCompletion = "The local runtime did not return a chat completion.";
  for (const auto& [result, status, code, message] :
       std::vector<std::tuple<Result, int, std::string, std::string>>{
           {ok("<html>"), 502, "invalid_local_runtime_response", noCompletion},
           {ok(R"({"choices":[]})"), 502, "invalid_local_runtime_response", noCompletion},
           {ok(R"({"choices":[{"text":"x"}]})"), 502, "invalid_local_runtime_response",
            noCompletion},
           {failed(HttpError::Kind::badAnswer), 502, "invalid_local_runtime_response",
            "The local runtime returned an unsupported response."},
           {failed(HttpError::Kind::timedOut), 503, "local_runtime_unavailable",
            "The local runtime could not be reached: Why."},
           {Result({404, {}, R"({"error":"no model"})"}), 502, "local_runtime_rejected_request",
            "no model"},
           {Result({500, {}, R"({"error":{"message":"out of memory"}})"}), 502,
            "local_runtime_rejected_request", "out of memory"},
           {Result({302, {}, "moved"}), 502, "local_runtime_rejected_request",
            "The local runtime returned HTTP 302."}}) {
    const auto response = compatibilityResponse(result, {}, now);
    EXPECT_EQ(response.status, status);
    EXPECT_EQ(response.body, GatewayResponse::error(status, code, message).body);
  }
}

TEST(CompatibilityResponse, ListsModelsInTheFormOfTheVendor) {
  const LocalRuntimeConnection runtime{LocalRuntimeKind::custom,
                                       "Test",
                                       *Url::parse("http://127.0.0.1/v1"),
                                       {{.id = "a:1", .label = "A"}, {.id = "b", .label = "B"}}};
  EXPECT_EQ(*json::parse(compatibilityModels({"GET", "/xai/v1/models"}, runtime).body),
            *json::parse(R"({"object":"list","data":[
                {"id":"local/a:1","object":"model","owned_by":"vantrell-local"},
                {"id":"local/b","object":"model","owned_by":"vantrell-local"}]})"));
  EXPECT_EQ(*json::parse(compatibilityModels({"GET", "/anthropic/v1/models"}, runtime).body),
            *json::parse(R"({"has_more":false,"first_id":"local/a:1","last_id":"local/b","data":[
                {"id":"local/a:1","type":"model","display_name":"A","created_at":"1970-01-01T00:00:00Z"},
                {"id":"local/b","type":"model","display_name":"B","created_at":"1970-01-01T00:00:00Z"}]})"));
}

}  // namespace
}  // namespace vantrell
