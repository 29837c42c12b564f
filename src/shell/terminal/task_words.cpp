#include "shell/terminal/task_words.h"

#include <cmath>
#include <fmt/format.h>

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "platform/values/json.h"
#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/json_member.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

constexpr std::size_t shownOfID = 8;                                // characters
constexpr double minute = 60, hour = 60 * minute, day = 24 * hour;  // seconds

}  // namespace

std::string shortID(const Uuid& id) {
  return id.text().substr(0, shownOfID);
}

std::string_view wordFor(RunRecordStatus status) {
  switch (status) {
    case RunRecordStatus::starting: return "starting";
    case RunRecordStatus::running: return "working";
    case RunRecordStatus::waitingApproval: return "waits for you";
    case RunRecordStatus::completed: return "completed";
    case RunRecordStatus::failed: return "failed";
    case RunRecordStatus::cancelled: return "stopped";
    case RunRecordStatus::interrupted: return "interrupted";
  }
  return "";
}

TableCell stateCell(RunRecordStatus status) {
  TableCell cell{std::string(wordFor(status))};
  switch (status) {
    case RunRecordStatus::starting:
    case RunRecordStatus::running: cell.look = &TerminalStyle::cyan; break;
    case RunRecordStatus::completed: cell.look = &TerminalStyle::green; break;
    case RunRecordStatus::failed: cell.look = &TerminalStyle::red; break;
    case RunRecordStatus::waitingApproval:
    case RunRecordStatus::cancelled:
    case RunRecordStatus::interrupted: cell.look = &TerminalStyle::yellow; break;
  }
  return cell;
}

TableCell stateOf(const ChatThread& thread) {
  const RunRecord* run = thread.latestRun();
  return run ? stateCell(run->status) : TableCell{"new", &TerminalStyle::dim};
}

std::optional<AgentProvider> providerOf(const ChatThread& thread) {
  const RunRecord* run = thread.latestRun();
  return run && run->provider ? run->provider : thread.lastProvider;
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

std::string duration(Seconds length) {
  const auto seconds = static_cast<long long>(std::max(0.0, std::floor(length.count())));
  if (seconds < 60) return fmt::format("{} s", seconds);
  if (seconds < 3600) return fmt::format("{} min {} s", seconds / 60, seconds % 60);
  return fmt::format("{} h {} min", seconds / 3600, seconds / 60 % 60);
}

std::string withTilde(const std::string& path) {
  const std::string home = files::homeFolder();
  if (path == home) return "~";
  return path.starts_with(home + "/") ? "~" + path.substr(home.size()) : path;
}

std::string titleOf(const ChatThread& thread) {
  std::string title = onOneLine(thread.title);
  return title.empty() ? "(untitled)" : title;
}

void writeTaskMembers(JsonWriter& writer, const Workspace& workspace, const ChatThread& thread) {
  member(writer, "workspaceID", workspace.id.text());
  member(writer, "project", workspace.name);
  member(writer, "path", workspace.path);
  member(writer, "threadID", thread.id.text());
  member(writer, "title", thread.title);
}

std::string taskAsJson(const Workspace& workspace, const ChatThread& thread) {
  std::string line;
  JsonWriter writer(line);
  writer.beginObject();
  writeTaskMembers(writer, workspace, thread);
  if (const RunRecord* run = thread.latestRun()) member(writer, "status", rawText(run->status));
  if (const auto provider = providerOf(thread)) member(writer, "provider", rawText(*provider));
  member(writer, "isPinned", thread.isPinned);
  member(writer, "isArchived", thread.isArchived);
  member(writer, "createdAt", thread.createdAt.secondsSinceReference());
  member(writer, "updatedAt", thread.updatedAt.secondsSinceReference());
  writer.endObject();
  return line + "\n";
}

}  // namespace vantrell::shell
