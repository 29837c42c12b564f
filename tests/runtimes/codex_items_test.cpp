#include "runtimes/codex/codex_items.h"

#include <gtest/gtest.h>

#include "platform/values/uuid.h"

namespace vantrell {
namespace {

std::string shown(const std::string& item, bool isCompleted = false, bool wasStreamed = false) {
  const auto update =
      codex::itemUpdate(*json::parseObject(item), isCompleted, wasStreamed, "/work space");
  return update ? json::write(*update) : "nothing";
}

std::string tool(const std::string& title, const std::string& status, const std::string& input) {
  return R"({"sessionUpdate":"tool_call_update","toolCallId":"i","title":")" + title +
         R"(","status":")" + status + R"(","rawInput":)" + input + "}";
}

TEST(CodexItems, ToolsAreShownWithTheirInput) {
  const std::pair<std::string, std::string> cases[] = {
      {R"({"type":"commandExecution","id":"i","command":"ls","cwd":"/c","aggregatedOutput":"o\n",)"
       R"("status":"completed"})",
       tool("ls", "completed", R"({"command":"ls","cwd":"/c","output":"o\n"})")},
      {R"({"type":"commandExecution","id":"i","aggregatedOutput":null})",
       tool("Run command", "in_progress", R"({"command":"","cwd":"/work space","output":""})")},
      {R"({"type":"fileChange","id":"i","changes":[{"path":"/p","z":1}],"status":"inProgress"})",
       tool("Edit files", "in_progress", R"({"changes":[{"path":"/p","z":1}]})")},
      {R"({"type":"fileChange","id":"i","status":"declined"})",
       tool("Edit files", "failed", R"({"changes":[]})")},
      {R"({"type":"mcpToolCall","id":"i","server":"git","tool":"log","arguments":{"n":[1]},)"
       R"("status":"failed"})",
       tool("git · log", "failed", R"({"n":[1]})")},
      {R"({"type":"mcpToolCall","id":"i"})", tool("MCP · tool", "in_progress", "{}")},
      {R"({"type":"dynamicToolCall","id":"i","tool":"t","arguments":[2]})",
       tool("t", "in_progress", "[2]")},
      {R"({"type":"imageView","id":"i","status":"future"})",
       tool("View image", "future", R"({"path":""})")},
  };
  for (const auto& [item, expected] : cases) {
    EXPECT_EQ(shown(item, false), expected);
    if (!item.contains("status")) continue;
    EXPECT_EQ(shown(item, true, true), expected) << "a tool is shown at both of its ends";
  }
}

// Codex sends no status for these two, and their end would leave them open for ever.
TEST(CodexItems, ToolThatEndsWithoutAStatusIsCompleted) {
  // As the real program sends them: the query is known at the end only.
  const auto search = [](const std::string& query, const std::string& action) {
    return R"({"type":"webSearch","id":"i","query":")" + query + R"(","action":)" + action +
           R"(,"results":null,"startedAtMs":1795472758269,"completedAtMs":null})";
  };
  EXPECT_EQ(shown(search("", R"({"type":"other"})"), false),
            tool("Search the web", "in_progress", R"({"query":""})"));
  EXPECT_EQ(shown(search("herons", R"({"type":"search","query":"herons","queries":null})"), true),
            tool("Search the web", "completed", R"({"query":"herons"})"));
  EXPECT_EQ(shown(R"({"type":"imageView","id":"i","path":"/p.png"})", true),
            tool("View image", "completed", R"({"path":"/p.png"})"));
}

TEST(CodexItems, WhatHasNothingToShowIsNotShown) {
  for (const std::string item :
       {R"({"type":"agentMessage","id":"m","text":""})", R"({"type":"agentMessage","id":"m"})",
        R"({"type":"reasoning","id":"r","summary":[],"content":["raw"]})",
        R"({"type":"reasoning","id":"r","summary":"text"})", R"({"type":"userMessage","id":"u"})",
        R"({"type":"contextCompaction","id":"c"})", R"({"id":"x"})", R"({"type":7,"id":"x"})"}) {
    EXPECT_EQ(shown(item, true), "nothing") << item;
  }
}

TEST(CodexItems, PlanHasAnEntryForEachStep) {
  const auto plan = [](const std::string& params) {
    return json::write(codex::planUpdate(*json::parseObject(params)));
  };
  EXPECT_EQ(plan(R"({"plan":[{"step":"one","status":"inProgress"},{"status":"completed"},)"
                 R"({"step":"three"},{"step":"four","status":"declined"}]})"),
            R"({"sessionUpdate":"plan","entries":[)"
            R"({"id":"codex-plan-0","content":"one","status":"in_progress","priority":"medium"},)"
            R"({"id":"codex-plan-1","content":"Task","status":"completed","priority":"medium"},)"
            R"({"id":"codex-plan-2","content":"three","status":"pending","priority":"medium"},)"
            R"({"id":"codex-plan-3","content":"four","status":"failed","priority":"medium"}]})");
  for (const std::string params : {"{}", R"({"plan":null})", R"({"plan":[]})"}) {
    EXPECT_EQ(plan(params), R"({"sessionUpdate":"plan","entries":[]})");
  }
}

}  // namespace
}  // namespace vantrell
