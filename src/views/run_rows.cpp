#include "views/run_rows.h"

#include <algorithm>
#include <fmt/format.h>

#include "engine/turns/run_activity_timing.h"
#include "platform/text/visible_text.h"

namespace vantrell::views {

namespace {

constexpr double minute = 60, hour = 60 * minute, day = 24 * hour;  // seconds

}  // namespace

RunRow runRow(const RunRecord& run, Date now) {
  const auto elapsed = &RunActivityTiming::elapsedLabel;
  const bool isUnderWay = isActive(run.status);
  const Date heard = run.lastActivityAt.value_or(run.startedAt);
  return {
      .id = run.id,
      .state = taskState(run.status),
      .provider = run.provider,
      .prompt = text::onOneLine(run.prompt),
      .message = text::onOneLine(run.statusMessage.value_or("")),
      .routingReason = text::onOneLine(run.routingReason.value_or("")),
      .begun = ago(run.startedAt, now),
      .lasted = elapsed(run.startedAt, isUnderWay ? now : run.completedAt.value_or(run.updatedAt)),
      .lastSign = isUnderWay ? elapsed(heard, now) + " ago" : ago(run.updatedAt, now)};
}

std::vector<ActivityRow> activityRows(std::span<const RunActivity> activities, Date now) {
  std::vector<ActivityRow> rows;
  for (const auto& each : activities) {
    rows.push_back({.key = {each.workspaceID, each.threadID},
                    .title = shownTitle(each.threadTitle),
                    .project = text::onOneLine(each.workspaceName),
                    .run = runRow(each.run, now)});
  }
  return rows;
}

std::size_t attentionCount(std::span<const RunActivity> activities) {
  return static_cast<std::size_t>(std::ranges::count_if(
      activities, [](const RunActivity& each) { return needsAttention(each.run.status); }));
}

std::string ago(Date then, Date now) {
  const double seconds = (now - then).count();
  const auto whole = [&](double unit) { return static_cast<long long>(seconds / unit); };
  if (seconds < minute) return "just now";  // a clock that was set back included
  if (seconds < hour) return fmt::format("{} min ago", whole(minute));
  if (seconds < day) return fmt::format("{} h ago", whole(hour));
  if (seconds < 2 * day) return "1 day ago";
  if (seconds < 14 * day) return fmt::format("{} days ago", whole(day));
  if (seconds < 56 * day) return fmt::format("{} weeks ago", whole(7 * day));
  return iso8601(then).substr(0, 10);
}

std::string minuteOf(Date date) {
  const std::string text = iso8601(date);
  return text.substr(0, 10) + " " + text.substr(11, 5) + " UTC";
}

}  // namespace vantrell::views
