#include "presentation/tool_grouping.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vantrell {
namespace {

using ::testing::ElementsAre;

ChatEntry tool(std::optional<std::string> title, std::string text = "",
               std::optional<std::string> status = {}) {
  ChatEntry entry;
  entry.kind = ChatEntryKind::tool;
  entry.title = std::move(title);
  entry.text = std::move(text);
  entry.status = std::move(status);
  return entry;
}

ChatEntry said(ChatEntryKind kind) {
  ChatEntry entry;
  entry.kind = kind;
  return entry;
}

/// "-" for an entry, and the key and size of a group.
std::vector<std::string> outline(std::vector<ChatEntry> entries) {
  std::vector<std::string> lines;
  for (const auto& item : ToolGrouping::transcriptItems(std::move(entries))) {
    const auto* group = std::get_if<ToolEntryGroup>(&item);
    lines.push_back(group ? group->key + " " + std::to_string(group->entries.size()) : "-");
  }
  return lines;
}

TEST(ToolGrouping, FoldsNeighboursOfOneSort) {
  const auto answer = said(ChatEntryKind::assistant);
  const auto note = said(ChatEntryKind::system);
  const auto read = tool("Read file");
  EXPECT_THAT(outline({answer, read, answer}), ElementsAre("-", "-", "-"));
  EXPECT_THAT(outline({read, note, read}), ElementsAre("-", "-", "-"));
  EXPECT_THAT(outline({read, tool("READ__file"), tool(" read - file"), tool("Write"), tool({}),
                       tool("Tool")}),
              ElementsAre("tool:read file 3", "-", "tool:tool 2"));
  const std::string run = R"({"command": "ls"})";
  EXPECT_THAT(outline({tool("List", run), tool("Anything", run), tool("Edit file a", run)}),
              ElementsAre("command 2", "-"));
}

TEST(ToolGrouping, NamesTheSort) {
  const struct {
    ChatEntry entry;
    std::string key;
    std::string title;
  } cases[] = {
      {tool("Web-Search: cats"), "web-search", "Web searches"},
      {tool("I search_the web"), "web-search", "Web searches"},
      {tool("WebSearch"), "web-search", "Web searches"},
      {tool("WebSearch it"), "tool:websearch it", "WebSearch it"},
      {tool("edit_file"), "file-edit", "File edits"},
      {tool("File  Change"), "file-edit", "File edits"},
      {tool("view-image x"), "image-view", "Images viewed"},
      {tool("x", R"({"\u0063ommand": null})"), "command", "Terminal commands"},
      {tool("x", R"(["command"])"), "tool:x", "x"},
      {tool({}), "tool:tool", "Tool activity"},
  };
  for (const auto& [entry, key, title] : cases) {
    EXPECT_EQ(ToolGrouping::key(entry), key);
    EXPECT_EQ(ToolGrouping::displayTitle(&entry), title);
  }
  EXPECT_EQ(ToolGrouping::displayTitle(nullptr), "Tool activity");
}

TEST(ToolGrouping, SumsUpTheInputInOneLine) {
  EXPECT_EQ(ToolGrouping::summary(tool({}, R"({"query":"q","path":"/a","command":7})")), "/a");
  EXPECT_EQ(ToolGrouping::summary(tool({}, R"({"command":"\n  make\nmake test"})")), "make");
  EXPECT_EQ(ToolGrouping::summary(tool({}, "\n\t\n  plain \nmore")), "plain");
}

TEST(ToolEntryGroup, HasTheStateOfItsEntries) {
  const auto statusOf = [](std::vector<std::optional<std::string>> statuses) {
    ToolEntryGroup group;
    for (auto& status : statuses) group.entries.push_back(tool({}, "", std::move(status)));
    return group.status();
  };
  EXPECT_EQ(statusOf({}), "completed");
  EXPECT_EQ(statusOf({"completed", "completed"}), "completed");
  EXPECT_EQ(statusOf({"completed", "in_progress"}), "in_progress");
  EXPECT_EQ(statusOf({"completed", std::nullopt}), "in_progress");
  EXPECT_EQ(statusOf({"in_progress", "failed", std::nullopt}), "failed");
}

}  // namespace
}  // namespace vantrell
