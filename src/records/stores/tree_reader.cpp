#include "records/stores/tree_reader.h"

#include <fmt/format.h>
#include <tuple>

#include "platform/files/files.h"
#include "records/stores/conversation_json.h"

namespace vantrell {

namespace {

/// No list of a thread is longer; a damaged number may say so.
constexpr std::int64_t mostPlaces = 10'000'000;

ChatEntry unreadableEntry(std::size_t place) {
  ChatEntry entry;
  entry.id = fmt::format("unreadable-{}", place);
  entry.kind = ChatEntryKind::system;
  entry.title = "Unreadable";
  entry.text = "This entry could not be read from the stored conversations.";
  return entry;
}

RunRecord unreadableRun() {
  RunRecord run;
  run.id = Uuid::random();
  run.status = RunRecordStatus::failed;
  run.statusMessage = "This run could not be read from the stored conversations.";
  return run;
}

/// The records of a thread's runs in their places; those that are lost are empty.
std::vector<std::string_view> runsOf(std::int64_t number, const SaveBatch::Rows& rows) {
  std::vector<std::string_view> records;
  const auto end = rows.lower_bound(rowKey(number, mostPlaces));
  for (auto each = rows.lower_bound(rowKey(number, 0)); each != end; ++each) {
    records.resize(static_cast<std::size_t>(each->first - rowKey(number, 0)) + 1);
    records.back() = each->second;
  }
  return records;
}

/// A damaged head often still begins with its id. Else the same number gives the same id at each
/// start, so that the conversation can be opened and deleted by it.
Uuid idOfDamagedHead(std::string_view head, std::int64_t number) {
  constexpr std::string_view key = "{\"id\":\"";
  constexpr std::size_t length = 36;
  if (head.starts_with(key)) {
    if (const auto id = Uuid::parse(head.substr(key.size(), length))) return *id;
  }
  return Uuid::parse(fmt::format("00000000-0000-4000-8000-{:012X}", number)).value();
}

}  // namespace

class TreeReader::ThreadSource final : public Transcript::Source {
 public:
  ThreadSource(std::shared_ptr<TreeReader> reader, std::int64_t number, std::string title)
      : reader_(std::move(reader)), number_(number), title_(std::move(title)) {}

  std::vector<ChatEntry> read(std::size_t first, std::size_t last) override {
    Part part = readFrom(reader_->file_, first, last);
    reportLost(part.lost);
    return std::move(part.entries);
  }

  Part readInBackground(std::size_t first, std::size_t last) override {
    auto& file = reader_->background_;
    if (!file && files::exists(reader_->path_)) {
      auto opened = ConversationFile::open(reader_->path_);
      if (opened) file.emplace(std::move(*opened));
    }
    if (file) return readFrom(*file, first, last);
    return {};  // the transcript reads it by itself when it is looked at
  }

  void reportLost(std::size_t lost) override {
    if (lost == 0) return;
    reader_->damaged(fmt::format("entries of {}", number_),
                     fmt::format("{} of the entries of the conversation \"{}\" could not be read.",
                                 lost, title_));
  }

 private:
  Part readFrom(ConversationFile& file, std::size_t first, std::size_t last) const {
    Part part;
    part.entries.reserve(last - first);
    for (auto& text : file.readEntries(number_, first, last)) {
      auto entry = text ? decodeEntry(*text) : std::unexpected(DecodeError{});
      part.lost += entry ? 0 : 1;
      part.entries.push_back(entry ? std::move(*entry)
                                   : unreadableEntry(first + part.entries.size()));
      text.reset();
    }
    return part;
  }

  const std::shared_ptr<TreeReader> reader_;
  const std::int64_t number_;
  const std::string title_;
};

std::vector<Workspace> TreeReader::read(const ConversationFile::Contents& contents,
                                        StoredTree& stored) {
  stored.reserve(file_.lastThread());
  seen_.clear();
  std::vector<std::tuple<std::int64_t, std::int64_t, Workspace>> owners;  // place, number
  for (const auto& [number, row] : contents.workspaces) {
    auto workspace = decodeWorkspaceHead(row.head);
    if (!workspace) {
      damaged(fmt::format("workspace {}", number),
              fmt::format("A project could not be read ({}); its conversations are in General.",
                          workspace.error().text()));
      continue;
    }
    stored.addWorkspace(number, row, *workspace);
    owners.emplace_back(row.place, number, std::move(*workspace));
  }
  std::ranges::sort(
      owners, {}, [](const auto& each) { return std::pair(std::get<0>(each), std::get<1>(each)); });

  std::map<std::int64_t, SaveBatch::ThreadRow> rows = contents.threads;
  for (const auto& [number, head] : contents.heads) {
    if (rows.contains(number)) continue;  // its own row is lost, but the entries tell their number
    rows[number].entries = static_cast<std::int64_t>(file_.countEntries(number));
  }
  std::map<std::int64_t, std::vector<std::pair<std::int64_t, std::int64_t>>> places;
  for (const auto& [number, row] : rows) places[row.workspace].emplace_back(row.place, number);

  std::vector<Workspace> workspaces;
  const auto take = [&](std::int64_t owner, std::vector<ChatThread>& threads) {
    const auto found = places.find(owner);
    if (found == places.end()) return;
    std::ranges::sort(found->second);
    for (const auto& each : found->second) {
      threads.push_back(readThread(each.second, contents, rows[each.second], stored));
    }
    places.erase(found);
  };
  for (auto& [place, number, workspace] : owners) {
    take(number, workspace.threads);
    workspaces.push_back(std::move(workspace));
  }
  orphans.clear();
  while (!places.empty()) take(places.begin()->first, orphans);
  return workspaces;
}

ChatThread TreeReader::readThread(std::int64_t number, const ConversationFile::Contents& contents,
                                  const SaveBatch::ThreadRow& row, StoredTree& stored) {
  const auto head = contents.heads.find(number);
  auto read = head == contents.heads.end()
                  ? std::unexpected(DecodeError{"", "its first row is missing"})
                  : decodeThreadHead(head->second);
  ChatThread thread;
  if (read) {
    thread = std::move(*read);
    // Written more often than the head; absent from a row that was lost.
    if (contents.threads.contains(number)) thread.updatedAt = Date(row.updatedAt);
  } else {
    thread.id = idOfDamagedHead(head == contents.heads.end() ? "" : head->second, number);
    thread.title = "A conversation that could not be read in full";
    thread.createdAt = thread.updatedAt = Date(row.updatedAt);
    damaged(fmt::format("thread {}", number),
            fmt::format("The title and the settings of a conversation could not be read ({}).",
                        read.error().text()));
  }
  if (!seen_.insert(thread.id).second) thread.id = Uuid::random();
  const auto records = runsOf(number, contents.runs);
  thread.runs = readRuns(records);
  const bool isPlausible = row.entries >= 0 && row.entries <= mostPlaces;
  const std::size_t count = isPlausible
                                ? static_cast<std::size_t>(row.entries)
                                : std::min<std::size_t>(file_.countEntries(number), mostPlaces);
  thread.entries =
      Transcript(count, std::make_shared<ThreadSource>(shared_from_this(), number, thread.title));
  stored.addThread(number, row, thread);
  return thread;
}

std::vector<RunRecord> TreeReader::readRuns(const std::vector<std::string_view>& records) {
  std::vector<RunRecord> runs;
  for (const auto record : records) {
    auto run = decodeRun(record);
    if (!run) {
      damaged("runs",
              fmt::format("The record of a run could not be read ({}).", run.error().text()));
    }
    runs.push_back(run ? std::move(*run) : unreadableRun());
  }
  return runs;
}

void TreeReader::damaged(const std::string& piece, const std::string& sentence) {
  if (onDamage) onDamage(piece, sentence);
}

}  // namespace vantrell
