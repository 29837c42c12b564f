#include "discovery/session_listings.h"

#include <gmock/gmock.h>

#include "records/values/raw_text.h"

namespace vantrell {
namespace {

using namespace sessionListings;
using enum AgentProvider;

/// The parts of a session that a listing decides, on one line; times in seconds since 1970.
std::string words(const ExternalProviderSession& session) {
  const auto time = [](Date date) {
    return date == Date::distantPast() ? std::string("never")
                                       : std::to_string(std::llround(date.secondsSinceUnixEpoch()));
  };
  return session.sessionID + "|" + session.title + "|" + session.workspacePath + "|" +
         time(session.createdAt) + "|" + time(session.updatedAt) + "|" +
         std::string(rawText(session.activity));
}
std::string words(const std::optional<ExternalProviderSession>& session) {
  return session ? words(*session) : "none";
}

TEST(SessionListings, DatesComeInEveryForm) {
  const std::pair<const char*, std::optional<double>> cases[] = {
      {"1700000000", 1700000000},
      {"1700000000000", 1700000000},
      {"10000000000", 10000000000},
      {"1700000000.5", 1700000000.5},
      {R"("1700000000")", 1700000000},
      {R"(" 1700000000000 ")", 1700000000},
      {R"("2023-11-14T22:13:20Z")", 1700000000},
      {R"("2023-11-14T22:13:20.500Z")", 1700000000.5},
      {R"("yesterday")", std::nullopt},
      {R"("")", std::nullopt},
      {"true", std::nullopt},
      {"{}", std::nullopt}};
  for (const auto& [text, expected] : cases) {
    const auto value = *json::parse(text);
    const auto read = date(&value);
    ASSERT_EQ(read.has_value(), expected.has_value()) << text;
    if (!read) continue;
    EXPECT_NEAR(read->secondsSinceUnixEpoch(), *expected, 0.001) << text;
  }
  EXPECT_EQ(date(nullptr), std::nullopt);
}

TEST(SessionListings, FoldersComeInEveryForm) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({"cwd":"/a"})", "/a"},
      {R"({"cwd":"  ","workingDirectory":" /b\n"})", "/b"},
      {R"({"cwd":7,"workspacePath":"file:///c%20d/e"})", "/c d/e"},
      {R"({"environment":{"cwd":"file://host/f?x"}})", "/f"},
      {R"({"environment":"/g"})", "none"},
      {R"({})", "none"}};
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(workspacePath(*json::parseObject(text)).value_or("none"), expected) << text;
  }
}

TEST(SessionListings, GrokListsColumns) {
  const std::string id = "01a20bee-66fc-7133-a8c2-996edacd9525";
  const std::pair<std::string, std::string> cases[] = {
      {id + "  2023-11-14 2023-11-15  idle  A title  of words",
       id + "|A title  of words||1699920000|1700006400|recent"},
      {id + " 2023-11-14 2023-99-99 INACTIVE\tx", id + "|x||1699920000|never|active"},
      {id + " 2023-11-14 2023-11-15 idle", "none"},
      {id.substr(1) + " 2023-11-14 2023-11-15 idle x", "none"},
      {"Session ID  Created  Updated  Status  Title", "none"},
      {" " + id + " 2023-11-14 2023-11-15 idle x", "none"},
      {"", "none"}};
  for (const auto& [line, expected] : cases) EXPECT_EQ(words(grokSession(line)), expected) << line;
}

TEST(SessionListings, CodexListsThreads) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({"id":"a","cwd":"/p","name":"N","preview":"P","createdAt":1,"updatedAt":2})",
       "a|N|/p|1|2|recent"},
      {R"({"id":"b","cwd":"/p","name":" ","preview":" P ","createdAt":1,"later":{}})",
       "b|P|/p|1|1|idle"},
      {R"({"id":"b","cwd":"/p","status":{"type":"active"}})", "b|Codex task|/p|never|never|active"},
      {R"({"id":"a","cwd":"/p","status":{"type":"idle"}})", "a|Codex task|/p|never|never|idle"},
      {R"({"id":"a","cwd":"/p","status":"active"})", "a|Codex task|/p|never|never|recent"},
      {R"({"cwd":"/p"})", "none"},
      {R"({"id":"a"})", "none"}};
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(words(codexSession(*json::parseObject(text), {"b"})), expected) << text;
  }
}

TEST(SessionListings, ListsOfObjectsKeepWhatTheyCan) {
  const auto acp = parseACPSessions(*json::parseObject(R"({"data":[
      {"sessionId":"a","cwd":"/p","title":"T","created":1,"lastUsedAt":3,"active":true},
      {"id":"b","cwd":"/p","summary":"S","status":"Active","createdAt":1},
      {"id":"c","cwd":"/p","status":"done"}, {"id":"d"}, 7]})"),
                                    kimi, "Kimi Code");
  std::vector<std::string> lines;
  for (const auto& each : acp) lines.push_back(words(each));
  EXPECT_THAT(lines, testing::ElementsAre("a|T|/p|1|3|active", "b|S|/p|1|1|active",
                                          "c|Kimi Code session|/p|never|never|recent"));
  const struct {
    std::string output;
    std::vector<std::string> expected;
  } cases[] = {
      {"", {}},
      {"[]", {}},
      // The two forms of the program, and a warning before one.
      {R"([{"id":"a","directory":"/p","title":"T","created":1700000000000,"updated":1700000001000}])",
       {"a|T|/p|1700000000|1700000001|recent"}},
      {"WARN [x] slow\n" + std::string(R"({"sessions":[{"sessionId":"b","project":{"path":"/q"},
        "time":{"created":1,"updated":2},"updatedAt":9,"new":[]}, {"id":"c"}]})"),
       {"b|GLM session|/q|1|2|recent"}},
      {R"({"other":1})", {}}};
  for (const auto& each : cases) {
    const auto listed = openCodeSessions(each.output);
    ASSERT_TRUE(listed) << each.output;
    lines.clear();
    for (const auto& session : *listed) lines.push_back(words(session));
    EXPECT_EQ(lines, each.expected) << each.output;
  }
  EXPECT_FALSE(openCodeSessions("no list"));
  EXPECT_FALSE(openCodeSessions(R"([{"id":"a")"));
}

}  // namespace
}  // namespace vantrell
