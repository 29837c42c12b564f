#include <fmt/format.h>
#include <unistd.h>

#include "platform/text/text.h"
#include "platform/values/json.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/json_member.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/standard_output.h"
#include "shell/terminal/state_view.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_search.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

constexpr std::size_t shownUnlessAsked = 50;  // hits

constexpr CommandOption options[] = {
    {"--project", "PROJECT", "only in this project: its name, folder or ID"},
    {"--in", "WHERE", "titles, entries or all (default)"},
    {"--case", "", "upper and lower case are different"},
    {"--limit", "N", "show no more than N (default: 50; with --json all)"},
    {"--json", "", "for scripts: one JSON object a line"},
};

/// Takes hits one by one and prints them, the task before the first of its own.
class HitPrinter {
 public:
  HitPrinter(StandardOutput& out, TerminalStyle style)
      : out_(out), style_(style), columns_(columnsForTables(STDOUT_FILENO)) {}

  void print(const SearchHit& hit) {
    if (last_ != hit.thread.id) {
      if (last_) out_.write("\n");
      last_ = hit.thread.id;
      heading(hit);
    }
    const std::string kind(hit.entry ? rawText(hit.entry->kind) : "title");
    const std::string id = hit.entry ? onOneLine(shortEntryID(hit.thread, *hit.entry)) : "";
    const std::string head = fmt::format("  {:<9}  {:<8}  ", kind, id);
    out_.write(style_.dim(head) +
               excerpt(hit, columns_ - std::min(columns_, text::columnCount(head))) + "\n");
  }

 private:
  void heading(const SearchHit& hit) {
    const std::string id = shortID(hit.thread.id);
    const std::string mark = hit.thread.isArchived ? ", archived" : "";
    // The title gets what it needs, up to what leaves some room for the project.
    const std::size_t room = columns_ - std::min(columns_, id.size() + 6 + mark.size());
    const std::string title =
        cutTo(titleOf(hit.thread), room - std::min(room / 3, std::size_t{12}));
    const std::string project =
        cutTo(onOneLine(hit.workspace.name), room - text::columnCount(title));
    out_.write(fmt::format("{}  {}  {}\n", style_.cyan(id), style_.bold(title),
                           style_.dim(fmt::format("({}{})", project, mark))));
  }
  /// A third of the room before the hit, what is left behind it.
  std::string excerpt(const SearchHit& hit, std::size_t room) const {
    const std::size_t marks = style_.isLive() ? 0 : 2;
    const std::string found = cutTo(hit.hit, std::max<std::size_t>(room, 12) - marks);
    std::size_t left = room - std::min(room, text::columnCount(found) + marks);
    const std::size_t behind = text::columnCount(hit.after);
    const std::size_t forBefore = std::max(left / 3, left - std::min(left, behind));
    const std::string before = cutTo(hit.before, forBefore, true);
    left -= std::min(left, text::columnCount(before));
    const std::string marked = style_.isLive() ? style_.bold(style_.red(found)) : "[" + found + "]";
    return before + marked + cutTo(hit.after, left);
  }

  StandardOutput& out_;
  TerminalStyle style_;
  std::size_t columns_;
  std::optional<Uuid> last_;
};

std::string asJson(const SearchHit& hit) {
  std::string line;
  JsonWriter writer(line);
  writer.beginObject();
  member(writer, "workspaceID", hit.workspace.id.text());
  member(writer, "threadID", hit.thread.id.text());
  if (hit.entry) member(writer, "entryID", hit.entry->id);
  member(writer, "kind", hit.entry ? rawText(hit.entry->kind) : "title");
  member(writer, "project", hit.workspace.name);
  member(writer, "title", hit.thread.title);
  member(writer, "isArchived", hit.thread.isArchived);
  member(writer, "createdAt",
         (hit.entry ? hit.entry->createdAt : hit.thread.createdAt).secondsSinceReference());
  member(writer, "before", hit.before);
  member(writer, "hit", hit.hit);
  member(writer, "after", hit.after);
  writer.endObject();
  return line + "\n";
}

std::expected<SearchRequest, UsageError> readRequest(const CommandArguments& arguments) {
  using Scope = SearchRequest::Scope;
  SearchRequest request;
  request.text = text::repaired(arguments.words.front());
  if (text::trimmed(request.text).empty()) {
    return usageError("The text to search for is empty.");
  }
  if (arguments.has("--case")) request.letterCase = text::Finder::Case::matters;
  const std::string scope = arguments.value("--in").value_or("all");
  if (scope == "titles") {
    request.scope = Scope::titles;
  } else if (scope == "entries") {
    request.scope = Scope::entries;
  } else if (scope != "all") {
    return usageError(
        fmt::format("--in takes titles, entries or all, not \"{}\".", onOneLine(scope)));
  }
  return request;
}

int search(const CommandArguments& arguments, const Environment& environment) {
  auto request = readRequest(arguments);
  if (!request) return refuse(request.error());
  const auto limit = countOption(arguments, "--limit");
  if (!limit) return refuse(limit.error());
  return withStateView([&](const StateView& state) -> std::expected<int, UsageError> {
    if (const auto named = arguments.value("--project")) {
      const auto found = findProject(state.workspaces, *named);
      if (!found) return std::unexpected(found.error());
      request->project = *found;
    }
    const bool asksForJson = arguments.has("--json");
    const std::size_t most =
        limit->value_or(asksForJson ? std::string_view::npos : shownUnlessAsked);
    StandardOutput out;
    HitPrinter printer(out, TerminalStyle::of(STDOUT_FILENO, environment));
    std::size_t count = 0;
    searchTasks(state.workspaces, *request, [&](const SearchHit& hit) {
      ++count;
      if (asksForJson) {
        out.write(asJson(hit));
        return count < most && !out.isClosed();
      }
      if (count <= most) printer.print(hit);
      return !out.isClosed();
    });
    if (!asksForJson) {
      if (count == 0) {
        out.write("Nothing was found.\n");
      } else {
        out.write(
            count > most
                ? fmt::format("\n{} found, the first {} shown: --limit N shows more\n", count, most)
                : fmt::format("\n{} found\n", count));
      }
    }
    return out.finish(count > 0 ? exitStatus::completed : exitStatus::failed);
  });
}

}  // namespace

const Command searchCommand{
    .name = "search",
    .parameters = "TEXT",
    .summary = "find a text in all tasks",
    .options = options,
    .fewestWords = 1,
    .mostWords = 1,
    .introduction =
        "Looks for a text in the titles and transcripts of all tasks, archived ones included;\n"
        "the case of letters does not count. Shows the first place in each entry, with the\n"
        "entry's ID:\n"
        "\"vantrell show ID --entry ENTRY\" begins there.",
    .closing =
        "Exit status: 0 found, 1 nothing found (or failed), 2 wrong usage.\n"
        "\n"
        "Examples:\n"
        "  vantrell search \"race condition\"\n"
        "  vantrell search --in titles --project . release",
    .run = search,
};

}  // namespace vantrell::shell
