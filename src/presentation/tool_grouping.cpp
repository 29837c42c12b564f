#include "presentation/tool_grouping.h"

#include <algorithm>
#include <optional>

#include "platform/text/text.h"
#include "platform/values/json.h"
#include "presentation/white_space.h"

namespace vantrell {

namespace {

constexpr std::string_view webSearch = "web-search";
constexpr std::string_view fileEdit = "file-edit";
constexpr std::string_view imageView = "image-view";
constexpr std::string_view command = "command";
constexpr std::string_view anyTool = "Tool activity";

/// What a row shows of a tool's input, the telling things first.
constexpr std::string_view summaryKeys[] = {"command", "file_path", "path", "query", "url"};

/// Lower case, with one blank for each run of "_" and "-" and then of white space.
std::string normalized(std::string_view title) {
  const std::string lower = text::lowercased(title);
  std::string normal;
  normal.reserve(lower.size());
  bool isInBlank = false;
  for (std::size_t at = 0; at < lower.size();) {
    const bool isDash = lower[at] == '_' || lower[at] == '-';
    const std::size_t blank = isDash ? 1 : white::at(lower, at);
    if (blank == 0) {
      normal += lower[at++];
    } else {
      if (!isInBlank) normal += ' ';
      at += blank;
    }
    isInBlank = blank != 0;
  }
  return std::string(text::trimmed(normal));
}

/// The entry's input. Most texts are no objects, and reading a long one costs.
std::optional<JsonObject> inputOf(const ChatEntry& entry) {
  if (!text::trimmed(entry.text).starts_with('{')) return std::nullopt;
  return json::parseObject(entry.text);
}

bool runsCommand(const ChatEntry& entry) {
  // A key could also be written with escapes.
  const bool mayHaveKey = entry.text.contains("\"command\"") || entry.text.contains('\\');
  if (!mayHaveKey) return false;
  const auto input = inputOf(entry);
  return input && input->find(command);
}

std::string_view firstLine(std::string_view text) {
  for (const std::string_view line : text::lines(text)) {
    if (const auto trimmed = text::trimmed(line); !trimmed.empty()) return trimmed;
  }
  return {};
}

}  // namespace

std::string_view ToolEntryGroup::status() const {
  const auto has = [](std::string_view status) {
    return [status](const ChatEntry& entry) { return entry.status == status; };
  };
  if (std::ranges::any_of(entries, has("failed"))) return "failed";
  return std::ranges::all_of(entries, has("completed")) ? "completed" : "in_progress";
}

namespace ToolGrouping {

std::string key(const ChatEntry& entry) {
  const std::string title = normalized(entry.title ? *entry.title : "tool");
  const auto says = [&title](std::string_view words) { return title.contains(words); };
  if (says("web search") || says("search the web") || title == "websearch") {
    return std::string(webSearch);
  }
  if (says("edit file") || says("file change")) return std::string(fileEdit);
  if (says("view image")) return std::string(imageView);
  if (runsCommand(entry)) return std::string(command);
  return "tool:" + title;
}

std::string displayTitle(const ChatEntry* entry) {
  if (!entry) return std::string(anyTool);
  const std::string sort = key(*entry);
  if (sort == webSearch) return "Web searches";
  if (sort == fileEdit) return "File edits";
  if (sort == imageView) return "Images viewed";
  if (sort == command) return "Terminal commands";
  return entry->title.value_or(std::string(anyTool));
}

std::vector<TranscriptItem> transcriptItems(std::vector<ChatEntry> entries) {
  std::vector<TranscriptItem> items;
  items.reserve(entries.size());
  std::string last;  // key of the tool entry before this one
  bool followsTool = false;
  for (ChatEntry& entry : entries) {
    const bool isTool = entry.kind == ChatEntryKind::tool;
    std::string sort = isTool ? key(entry) : std::string();
    if (!isTool || !followsTool || sort != last) {
      items.emplace_back(std::move(entry));
    } else if (auto* group = std::get_if<ToolEntryGroup>(&items.back())) {
      group->entries.push_back(std::move(entry));
    } else {
      ToolEntryGroup pair{sort, {}};
      pair.entries.push_back(std::move(std::get<ChatEntry>(items.back())));
      pair.entries.push_back(std::move(entry));
      items.back() = std::move(pair);
    }
    followsTool = isTool;
    last = std::move(sort);
  }
  return items;
}

std::string summary(const ChatEntry& entry) {
  if (const auto input = inputOf(entry)) {
    for (const auto name : summaryKeys) {
      const Json* value = input->find(name);
      const std::string* words = value ? value->asText() : nullptr;
      if (const auto line = words ? firstLine(*words) : ""; !line.empty()) return std::string(line);
    }
  }
  return std::string(firstLine(entry.text));
}

}  // namespace ToolGrouping

}  // namespace vantrell
