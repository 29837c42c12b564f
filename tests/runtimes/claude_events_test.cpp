#include "runtimes/claude/claude_events.h"

#include <gtest/gtest.h>

#include "platform/values/uuid.h"
#include "support/claude_frames.h"

namespace vantrell {
namespace {

namespace frames = tests::claude_frames;
using Updates = ClaudeEvents::Updates;

JsonObject parsed(std::string_view text) {
  auto object = json::parseObject(text);
  EXPECT_TRUE(object) << text;
  return object.value_or(JsonObject{});
}

/// What the events give for a message, by its type.
Updates tell(ClaudeEvents& events, std::string_view text) {
  const JsonObject message = parsed(text);
  const std::string type = json::textOr(message, "type", "");
  if (type == "stream_event") return events.streamEvent(message);
  if (type == "assistant") return events.assistantMessage(message);
  if (type == "user") return events.userMessage(message);
  return events.systemEvent(message);
}

std::string written(const Updates& updates) {
  std::string lines;
  for (const auto& update : updates) lines += json::write(update) + "\n";
  return lines;
}

std::string textOf(const Updates& updates) {
  std::string text;
  for (const auto& update : updates) {
    if (const auto* content = json::object(update, "content")) {
      text += json::textOr(*content, "text", "");
    }
  }
  return text;
}

std::string titleAndStatus(const Updates& updates) {
  if (updates.size() != 1) return written(updates);
  return json::textOr(updates[0], "title", "") + ": " + json::textOr(updates[0], "status", "");
}

// Claude Code words the failure of a turn as a message of its own in front of the result.
TEST(ClaudeEvents, WordsOfAFailureAreNoAnswer) {
  ClaudeEvents events;
  EXPECT_TRUE(tell(events, frames::limitText).empty());
  EXPECT_TRUE(events.endTurn(true).empty());
  tell(events, frames::limitText);
  EXPECT_EQ(textOf(events.endTurn(false)), "You've hit your session limit · resets 1:40am (UTC)")
      << "the turn went well, so nothing else tells them";
  EXPECT_TRUE(events.endTurn(false).empty());
}

TEST(ClaudeEvents, TextAfterAToolIsAnotherMessage) {
  ClaudeEvents events;
  const auto idOf = [&](const char* frame) {
    return json::textOr(tell(events, frame).at(0), "messageId", "");
  };
  const std::string before = idOf(frames::textDelta);
  tell(events, frames::toolStart);
  tell(events, frames::toolWhole);
  tell(events, frames::toolResult);
  const std::string after = idOf(frames::textDelta);
  EXPECT_NE(after, before);
  EXPECT_EQ(idOf(frames::textDelta), after);
}

TEST(ClaudeEvents, DeniedToolHasFailed) {
  ClaudeEvents events;
  EXPECT_TRUE(tell(events, frames::toolDenied).empty()) << "nobody knows this call";
  tell(events, frames::toolWhole);
  EXPECT_EQ(titleAndStatus(tell(events, frames::toolDenied)), "Bash: failed");
}

TEST(ClaudeEvents, FailedTurnLeavesNoToolInProgress) {
  ClaudeEvents events;
  tell(events, frames::toolWhole);
  EXPECT_TRUE(events.endTurn(false).empty());
  EXPECT_TRUE(events.endTurn(true).empty()) << "it belonged to the turn before";
  tell(events, frames::toolWhole);
  EXPECT_EQ(titleAndStatus(events.endTurn(true)), "Bash: failed");
}

TEST(ClaudeEvents, BlocksAreToldInTheirOrder) {
  ClaudeEvents events;
  const Updates updates = tell(
      events,
      R"({"type":"assistant","message":{"content":[{"type":"text","text":"a"},5,{"type":"text",)"
      R"("text":""},{"type":"image"},{"type":"tool_use","id":"t","name":"N"},{"type":"thinking",)"
      R"("thinking":"b"},{"type":"text","text":"c"}]}})");
  ASSERT_EQ(updates.size(), 4u) << written(updates);
  EXPECT_EQ(textOf(updates), "abc");
  EXPECT_EQ(json::textOr(updates[1], "toolCallId", ""), "t");
  EXPECT_EQ(json::textOr(updates[2], "sessionUpdate", ""), "agent_thought_chunk");
}

TEST(ClaudeEvents, BackgroundTaskIsToldWithoutTheNewNames) {
  const std::string generic = "Claude background task: ";
  struct Case {
    std::string keys, told;
  };
  for (const Case& each : {
           Case{R"("task_started")", generic + "in_progress"},
           Case{R"("task_notification")", generic + "completed"},
           Case{R"("task_updated")", generic + "completed"},
           Case{R"("task_updated","summary":"S","description":"d","status":"failed",)"
                R"("patch":{"status":"completed"})",
                "S: failed"},
           Case{R"("task_updated","patch":{"status":"running"})", generic + "in_progress"},
           Case{R"("task_progress","summary":"S")", ""},
       }) {
    ClaudeEvents events;
    EXPECT_EQ(titleAndStatus(
                  tell(events, R"({"type":"system","task_id":"t","subtype":)" + each.keys + "}")),
              each.told)
        << each.keys;
  }
}

TEST(ClaudeEvents, RealBackgroundTaskKeepsItsName) {
  ClaudeEvents events;
  const Updates started = tell(events, frames::backgroundStarted);
  EXPECT_EQ(json::textOr(started.at(0), "sessionUpdate", ""), "tool_call");
  EXPECT_EQ(titleAndStatus(started), "slow thing: in_progress");
  const std::string waits = R"({"type":"system","subtype":"task_updated","task_id":"bs25dsxhs",)"
                            R"("patch":{"status":"pending"}})";
  EXPECT_EQ(titleAndStatus(tell(events, waits)), "slow thing: pending");
  const Updates updated = tell(events, frames::backgroundUpdated);
  EXPECT_EQ(json::textOr(updated.at(0), "sessionUpdate", ""), "tool_call_update");
  EXPECT_EQ(titleAndStatus(updated), "slow thing: completed");
  EXPECT_EQ(titleAndStatus(tell(events, frames::backgroundNotified)),
            R"(Background command "slow thing" completed (exit code 0): completed)");
}

}  // namespace
}  // namespace vantrell
