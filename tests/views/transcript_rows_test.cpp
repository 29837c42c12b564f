#include "views/transcript_rows.h"

#include <gmock/gmock.h>

#include "platform/values/date.h"
#include "support/task_records.h"

namespace vantrell::views {
namespace {

using ::testing::ElementsAre;
using Kind = TranscriptRow::Kind;
using tests::entryWith;

constexpr double day = 86400;  // seconds

ChatEntry toolWith(std::string id, std::string title, std::string status, std::string input = "") {
  auto entry = entryWith(std::move(id), std::move(input), ChatEntryKind::tool);
  entry.title = std::move(title);
  entry.status = std::move(status);
  return entry;
}

std::vector<std::string> outlineOf(const std::vector<TranscriptRow>& rows) {
  constexpr std::string_view names[] = {"day",  "user",  "assistant", "thought",
                                        "tool", "group", "hook",      "system"};
  std::vector<std::string> outline;
  for (const auto& each : rows) {
    outline.push_back(std::string(names[static_cast<std::size_t>(each.kind)]) + " " +
                      (each.kind == Kind::day ? each.title : each.id));
  }
  return outline;
}

TEST(TranscriptRows, ToolCallsAreFoldedAndHooksAreNot) {
  const std::vector<ChatEntry> entries = {
      entryWith("u", "Fix it", ChatEntryKind::user),
      toolWith("h1", "Hook · hooks/a", "completed", "said\x1b this"),
      toolWith("h2", "Hook · hooks/a", "failed", "and that"),
      toolWith("t1", "Run tests", "completed", R"({"command": "make test"})"),
      toolWith("t2", "Run", "in_progress", R"({"command": "ls"})"),
      entryWith("a", "Done \x1b[1m."),
      toolWith("t3", "Read", "cancelled"),
      entryWith("s", "Stopped by you.", ChatEntryKind::system),
  };
  const auto rows = transcriptRows(entries, &entries.front(), Date(0));
  EXPECT_THAT(outlineOf(rows), ElementsAre("user u", "hook h1", "hook h2", "group t1",
                                           "assistant a", "tool t3", "system s"));
  EXPECT_EQ(rows[1].text, "said␛ this");
  EXPECT_EQ(rows[2].progress, Progress::failed);
  const auto& group = rows[3];
  EXPECT_EQ(group.title, "Terminal commands");
  EXPECT_EQ(group.progress, Progress::working);
  ASSERT_EQ(group.tools.size(), 2U);
  EXPECT_EQ(group.tools[0].summary, "make test");
  EXPECT_EQ(group.tools[1].progress, Progress::working);
  EXPECT_EQ(rows[4].text, "Done \x1b[1m.") << "its drawing reads the Markdown";
  EXPECT_EQ(rows[5].progress, Progress::failed);
  EXPECT_EQ(rows[5].tools.front().status, "cancelled");
}

TEST(TranscriptRows, DayStandsWhereItChanges) {
  const Date now(1000 * day);
  std::vector<ChatEntry> entries(4, entryWith("e", "x"));
  entries[0].createdAt = now - Seconds(9 * day);
  entries[1].createdAt = now - Seconds(day);
  entries[2].createdAt = entries[3].createdAt = now;
  EXPECT_THAT(outlineOf(transcriptRows(entries, nullptr, now)),
              ElementsAre("day " + mediumDate(entries[0].createdAt), "assistant e", "day Yesterday",
                          "assistant e", "day Today", "assistant e", "assistant e"));
  const auto end = std::span<const ChatEntry>(entries).subspan(3);
  EXPECT_THAT(outlineOf(transcriptRows(end, &entries[2], now)), ElementsAre("assistant e"));
}

TEST(TranscriptRows, DatesThatNoCalendarHasDoNoHarm) {
  auto entry = entryWith("e", "x");
  for (const double seconds : {-1e300, 1e300, std::numeric_limits<double>::quiet_NaN()}) {
    entry.createdAt = Date(seconds);
    EXPECT_EQ(transcriptRows(std::span(&entry, 1), nullptr, Date(0)).size(), 2U);
  }
}

TEST(TranscriptRows, AttachmentsAreFitToBeShown) {
  auto entry = entryWith("u", "look", ChatEntryKind::user);
  entry.attachments.push_back(
      {.displayName = "a\nb", .path = "/x/a\nb", .kind = ChatAttachmentKind::image});
  const auto rows = transcriptRows(std::span(&entry, 1), &entry, Date(0));
  EXPECT_EQ(rows[0].attachments,
            (std::vector<AttachmentRow>{{"a b", "/x/a b", ChatAttachmentKind::image}}));
}

TEST(TranscriptRows, LongTextIsBoundedAndSaysHowLongItIs) {
  const auto whole = bounded("a\nb\n\n", 2);
  EXPECT_TRUE(whole.isWhole());
  const auto cut = bounded("a\nb\nc", 2);
  EXPECT_THAT(cut.lines, ElementsAre("a", "b"));
  EXPECT_EQ(cut.total, 3U);
}

TEST(TranscriptRows, StatusIsReadAsAgentsWriteIt) {
  const std::pair<std::string, std::string> cases[] = {
      {"", "○"},          {"pending", "○"},   {"in_progress", "▸"}, {"running", "▸"},
      {"completed", "✓"}, {"cancelled", "✗"}, {"failed", "✗"}};
  for (const auto& [status, expected] : cases) {
    EXPECT_EQ(sign(progressOf(status)), expected) << status;
    EXPECT_EQ(sign(planRow({.content = "x", .status = status}).progress), expected);
  }
}

}  // namespace
}  // namespace vantrell::views
