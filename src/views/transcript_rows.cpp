#include "views/transcript_rows.h"

#include <fmt/format.h>

#include "platform/text/text.h"
#include "platform/text/visible_text.h"
#include "platform/values/date.h"
#include "presentation/tool_grouping.h"
#include "records/values/project_hook.h"

namespace vantrell::views {

namespace {

using Kind = TranscriptRow::Kind;

Kind kindOf(const ChatEntry& entry) {
  switch (entry.kind) {
    case ChatEntryKind::user: return Kind::user;
    case ChatEntryKind::assistant: return Kind::assistant;
    case ChatEntryKind::thought: return Kind::thought;
    case ChatEntryKind::tool: return isHookEntry(entry) ? Kind::hook : Kind::tool;
    case ChatEntryKind::system: break;
  }
  return Kind::system;
}

TranscriptRow rowOf(const ChatEntry& entry) {
  TranscriptRow row{.kind = kindOf(entry),
                    .id = entry.id,
                    .title = text::onOneLine(entry.title.value_or("")),
                    .provider = entry.provider,
                    .createdAt = entry.createdAt};
  if (row.kind == Kind::tool) {
    row.tools.push_back(toolRow(entry));
    row.title = row.tools.front().title;
  } else {
    row.text = row.kind == Kind::assistant ? entry.text : text::sanitized(entry.text);
  }
  if (entry.kind == ChatEntryKind::tool) row.progress = progressOf(entry.status.value_or(""));
  for (const auto& each : entry.attachments) {
    row.attachments.push_back(
        {text::onOneLine(each.displayName), text::onOneLine(each.path), each.kind});
  }
  return row;
}

TranscriptRow rowOf(const ToolEntryGroup& group) {
  const ChatEntry& first = group.entries.front();
  TranscriptRow row{.kind = Kind::toolGroup,
                    .id = first.id,
                    .title = text::onOneLine(ToolGrouping::displayTitle(&first)),
                    .progress = group.status() == "failed"      ? Progress::failed
                                : group.status() == "completed" ? Progress::completed
                                                                : Progress::working,
                    .provider = first.provider,
                    .createdAt = first.createdAt};
  for (const auto& each : group.entries) row.tools.push_back(toolRow(each));
  return row;
}

}  // namespace

Progress progressOf(std::string_view status) {
  if (status.empty() || status == "pending") return Progress::pending;
  if (isOpenToolStatus(status)) return Progress::working;
  return status == "completed" ? Progress::completed : Progress::failed;
}

std::string_view sign(Progress progress) {
  constexpr std::string_view signs[] = {"○", "▸", "✓", "✗"};
  return signs[static_cast<std::size_t>(progress)];
}

ToolRow toolRow(const ChatEntry& entry) {
  const std::string status = entry.status.value_or("pending");
  return {.id = entry.id,
          .title = text::onOneLine(entry.title.value_or("")),
          .summary = text::onOneLine(ToolGrouping::summary(entry)),
          .progress = progressOf(status),
          .status = text::onOneLine(status)};
}

std::vector<TranscriptRow> transcriptRows(std::span<const ChatEntry> entries,
                                          const ChatEntry* before, Date now) {
  std::vector<TranscriptRow> rows;
  std::optional<long> day;
  if (before) day = localDay(before->createdAt);
  const auto add = [&](TranscriptRow row) {
    const long rowDay = localDay(row.createdAt);
    if (day != rowDay) {
      rows.push_back({.kind = Kind::day,
                      .id = fmt::format("day{}", rowDay),
                      .title = dayLabel(row.createdAt, now),
                      .createdAt = row.createdAt});
    }
    day = rowDay;
    rows.push_back(std::move(row));
  };
  for (const auto& item : ToolGrouping::transcriptItems({entries.begin(), entries.end()})) {
    const auto* group = std::get_if<ToolEntryGroup>(&item);
    if (!group) {
      add(rowOf(std::get<ChatEntry>(item)));
    } else if (isHookEntry(group->entries.front())) {
      // What each of them has printed is for people.
      for (const auto& each : group->entries) add(rowOf(each));
    } else {
      add(rowOf(*group));
    }
  }
  return rows;
}

std::string dayLabel(Date day, Date now) {
  const long before = localDay(now) - localDay(day);
  if (before == 0) return "Today";
  return before == 1 ? "Yesterday" : mediumDate(day);
}

BoundedText bounded(std::string_view text, std::size_t most) {
  BoundedText bounded{.lines = text::visibleLines(text)};
  bounded.total = bounded.lines.size();
  if (bounded.total > most) bounded.lines.resize(most);
  return bounded;
}

PlanRow planRow(const PlanEntry& entry) {
  return {text::onOneLine(entry.content), progressOf(entry.status)};
}

}  // namespace vantrell::views
