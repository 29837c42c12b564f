#include "gateway/compatibility_request.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/values/json.h"

namespace vantrell {
namespace {

const std::string chat = "/openai/v1/chat/completions";
const std::string responses = "/openai/v1/responses";
const std::string messages = "/anthropic/v1/messages";

LocalRuntimeConnection runtime() {
  return {LocalRuntimeKind::custom,
          "Test",
          *Url::parse("http://127.0.0.1:8080/v1"),
          {{.id = "a"}, {.id = "b", .isDefault = true}}};
}

GatewayResult<PreparedCompatibilityRequest> prepare(const std::string& path,
                                                    const std::string& body) {
  return prepareCompatibility({"POST", path, {}, body}, runtime());
}

TEST(CompatibilityRequest, RecognizesExactlyItsRoutes) {
  for (const auto& [method, path, expected] :
       std::vector<std::tuple<std::string, std::string, bool>>{
           {"POST", "/openai/v1/chat/completions", true},
           {"POST", "/xai/v1/chat/completions", true},
           {"POST", "/openai/v1/responses", true},
           {"POST", "/anthropic/v1/messages", true},
           {"GET", "/openai/v1/models", true},
           {"GET", "/xai/v1/models", true},
           {"GET", "/anthropic/v1/models", true},
           {"GET", "/openai/v1/responses", false},
           {"POST", "/openai/v1/models", false},
           {"POST", "/xai/v1/responses", false},
           {"POST", "/openai/v1/responses/", false},
           {"GET", "/v1/models", false}}) {
    EXPECT_EQ(isCompatibilityRequest({method, path, {}, {}}), expected) << method << ' ' << path;
  }
}

TEST(CompatibilityRequest, ChoosesTheNamedModelOrTheDefault) {
  for (const auto& [given, requested, actual] :
       std::vector<std::array<std::string, 3>>{{R"("a")", "a", "a"},
                                               {R"("local/a")", "local/a", "a"},
                                               {R"("local/x")", "local/x", "b"},
                                               {R"(" gpt-5 ")", "gpt-5", "b"},
                                               {R"("  ")", "default", "b"},
                                               {"null", "default", "b"}}) {
    const auto prepared = prepare(responses, R"({"input":"x","model":)" + given + "}");
    ASSERT_TRUE(prepared);
    EXPECT_EQ(prepared->requestedModel, requested);
    EXPECT_EQ(prepared->actualModel, actual);
  }
  auto none = runtime();
  none.models[1].isDefault = false;
  EXPECT_EQ(prepareCompatibility({"POST", responses, {}, R"({"input":"x"})"}, none)->actualModel,
            "a");
}

TEST(CompatibilityRequest, TranslatesEachFormat) {
  struct Case {
    std::string path, body, upstream;
  };
  for (
      const auto& [path, body, upstream] : std::vector<Case>{
          {chat,
           R"({"stream":true,"temperature":0.5,"top_p":1,"max_tokens":9,"max_completion_tokens":7,
                "seed":1,"tools":[1],"tool_choice":"auto","response_format":{"type":"text"},
                "messages":[{"role":"user","name":"x","content":["a",{"type":"text","text":"b"},
                {"type":"input_text","text":"c"},{"type":"output_text","text":"d"}]},
                {"role":"assistant","content":null,"tool_calls":[{"id":"1"}]},{"role":"tool"}]})",
           R"({"temperature":0.5,"top_p":1,"max_tokens":7,"tools":[1],"tool_choice":"auto",
                "response_format":{"type":"text"},
                "messages":[{"role":"user","name":"x","content":"a\nb\nc\nd"},
                {"role":"assistant","content":"","tool_calls":[{"id":"1"}]},{"role":"tool"}]})"},
          {responses, R"({"instructions":"Be brief.","input":"Hi","max_output_tokens":3,
                           "text":{"format":{"type":"json_object"}},"tools":[]})",
           R"({"messages":[{"role":"system","content":"Be brief."},{"role":"user","content":"Hi"}],
                "max_tokens":3,"response_format":{"type":"json_object"}})"},
          {responses,
           R"({"instructions":"","input":[{"role":"developer","content":"D"},{"content":{"text":"U"}},
                {"type":"function_call_output","call_id":"c1","output":[{"type":"input_text","text":"42"}]}],
                "tools":[{"type":"function","name":"f","description":"d","parameters":{"type":"object"}},
                         {"function":{"name":"g"}},{"type":"web_search"}]})",
           R"({"messages":[{"role":"developer","content":"D"},{"role":"user","content":"U"},
                {"role":"tool","tool_call_id":"c1","content":"42"}],
                "tools":[{"type":"function","function":{"name":"f","description":"d","parameters":{"type":"object"}}},
                         {"type":"function","function":{"name":"g"}}]})"},
          {messages,
           R"({"max_tokens":5,"system":[{"type":"text","text":"S","cache_control":{}}],
                "tools":[{"name":"f","description":"d","input_schema":{"type":"object"}}],
                "messages":[{"role":"user","content":"Hi"},
                {"role":"assistant","content":[{"type":"thinking","thinking":"t"},
                 {"type":"text","text":"A"},{"type":"text","text":"B"},
                 {"type":"tool_use","id":"t1","name":"f","input":{"x":[1]}}]},
                {"role":"user","content":[{"type":"text","text":"And?"},
                 {"type":"tool_result","tool_use_id":"t1","content":[{"type":"text","text":"R"}]}]},
                {"role":"user","content":[{"type":"tool_result","tool_use_id":"t2"}]}]})",
           R"({"max_tokens":5,
                "tools":[{"type":"function","function":{"name":"f","description":"d","parameters":{"type":"object"}}}],
                "messages":[{"role":"system","content":"S"},{"role":"user","content":"Hi"},
                {"role":"assistant","content":"A\nB","tool_calls":[{"id":"t1","type":"function",
                 "function":{"name":"f","arguments":"{\"x\":[1]}"}}]},
                {"role":"tool","tool_call_id":"t1","content":"R"},{"role":"user","content":"And?"},
                {"role":"tool","tool_call_id":"t2","content":""}]})"}}) {
    const auto prepared = prepare(path, body);
    ASSERT_TRUE(prepared) << prepared.error().message << body;
    auto expected = *json::parseObject(upstream);
    expected.set("model", "b");
    expected.set("stream", false);
    EXPECT_EQ(*json::parseObject(prepared->upstream.body), expected) << prepared->upstream.body;
    EXPECT_EQ(prepared->upstream.url, "http://127.0.0.1:8080/v1/chat/completions");
    EXPECT_EQ(prepared->stream, path == chat);
  }
}

TEST(CompatibilityRequest, RefusesWhatItCannotCarry) {
  const auto user = [](const std::string& content) {
    return R"({"messages":[{"role":"user","content":)" + content + "}]}";
  };
  const std::string needsArray = "messages must be a non-empty array.";
  const std::string needsRole = "Every message must have a role.";
  for (const auto& [path, body, code, message] : std::vector<std::array<std::string, 4>>{
           {chat, "[]", "invalid_json", "Send a JSON request object."},
           {chat, "{", "invalid_json", ""},
           {chat, "{}", "invalid_messages", needsArray},
           {chat, R"({"messages":[]})", "invalid_messages", needsArray},
           {chat, R"({"messages":["x"]})", "invalid_messages", needsArray},
           {chat, R"({"messages":[{"content":"x"}]})", "invalid_messages", needsRole},
           {chat, user("1"), "invalid_content", ""},
           {chat, user(R"([{"type":"text"}])"), "invalid_content", ""},
           {chat, user(R"([{"type":"image_url","image_url":{}}])"), "text_only",
            "Local API compatibility currently accepts text input only."},
           {responses, "{}", "invalid_input", "input must be text or an array of input items."},
           {responses, R"({"input":[]})", "invalid_input", "input cannot be empty."},
           {responses, R"({"input":[{"content":[{"type":"input_image"}]}]})", "text_only", ""},
           {messages, "{}", "invalid_messages", needsArray},
           {messages, R"({"messages":[]})", "invalid_messages", "messages cannot be empty."},
           {messages, R"({"messages":[{}]})", "invalid_messages", needsRole},
           {messages, user(R"([{"type":"image"}])"), "text_only", ""},
           {messages, user(R"([{"type":"document"}])"), "invalid_content", ""},
           {messages, user(R"([{"type":"tool_result","content":[{"type":"image"}]}])"), "text_only",
            ""},
           {"/openai/v1/other", "{}", "not_found", ""}}) {
    const auto prepared = prepare(path, body);
    ASSERT_FALSE(prepared) << body;
    EXPECT_EQ(prepared.error().code, code) << body;
    EXPECT_EQ(prepared.error().status, code == "not_found" ? 404 : 400);
    EXPECT_TRUE(message.empty() || prepared.error().message == message) << message;
  }
  auto empty = runtime();
  empty.models.clear();
  EXPECT_EQ(prepareCompatibility({"POST", chat, {}, "{}"}, empty).error().code,
            "local_runtime_has_no_models");
}

}  // namespace
}  // namespace vantrell
