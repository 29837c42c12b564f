#include "records/stores/stored_tree.h"

#include <optional>

#include "platform/text/text.h"
#include "records/stores/conversation_json.h"

namespace vantrell {

namespace {

std::string rowOf(const RunRecord& run, std::size_t /*maxBytes*/) {
  return encodeRow(run);
}

/// An entry that is too long for the store is cut, so that all else is saved.
std::string rowOf(const ChatEntry& entry, std::size_t maxBytes) {
  std::string row = encodeRow(entry);
  if (row.size() <= maxBytes) return row;
  ChatEntry cut = entry;
  // A byte of text takes up to six in a row.
  cut.text = text::repaired(std::string_view(entry.text).substr(0, maxBytes / 8)) +
             "\n\n(The rest is too long to be stored.)";
  return encodeRow(cut);
}

/// The rows of what changed in a list of which `stored` rows are in the store; the others are new.
template <typename List>
void collectList(const List& list, const TreeChanges::List& changes, std::size_t stored,
                 std::int64_t number, std::size_t maxBytes, SaveBatch::Rows& rows,
                 SaveBatch::Lengths& lengths) {
  if (list.size() < stored) lengths[number] = list.size();
  const std::size_t unchanged = std::min(stored, changes.unchanged);
  const auto put = [&](std::size_t place) {
    rows[rowKey(number, place)] = rowOf(list[place], maxBytes);
  };
  for (const std::size_t place : changes.places) {
    if (place < std::min(unchanged, list.size())) put(place);
  }
  for (std::size_t i = unchanged; i < list.size(); ++i) put(i);
}

/// Places in rising order that differ from the stored ones as little as can be: what comes in front
/// gets a smaller place than the first, and nothing else moves. `stored` gives none for what is
/// new.
std::vector<std::int64_t> risingPlaces(const std::vector<std::optional<std::int64_t>>& stored) {
  std::vector<std::int64_t> places(stored.size());
  std::int64_t highest = 0;
  for (const auto& each : stored) highest = std::max(highest, each.value_or(0));
  // From the back, since new ones come in front.
  std::int64_t next = highest + static_cast<std::int64_t>(stored.size()) + 1;
  for (std::size_t i = stored.size(); i-- > 0;) {
    const bool stays = stored[i] && *stored[i] < next;
    places[i] = stays ? *stored[i] : next - 1;
    next = places[i];
  }
  return places;
}

}  // namespace

void StoredTree::addWorkspace(std::int64_t number, const SaveBatch::WorkspaceRow& row,
                              const Workspace& workspace) {
  workspaces_[workspace.id] = {.number = number,
                               .place = row.place,
                               .name = workspace.name,
                               .path = workspace.path,
                               .isPinned = workspace.isPinned};
  reserve(number);
}

void StoredTree::addThread(std::int64_t number, const SaveBatch::ThreadRow& row,
                           const ChatThread& thread) {
  StoredThread& stored = threads_[thread.id];
  stored = {.number = number, .row = row, .runs = thread.runs.size()};
  // A damaged row may tell another number.
  stored.row.entries = static_cast<std::int64_t>(thread.entries.size());
  reserve(number);
}

SaveBatch StoredTree::collect(const std::vector<Workspace>& workspaces,
                              const TreeChanges& changes) {
  SaveBatch batch;
  if (changes.structure) collectStructure(workspaces, batch);
  for (const auto& [key, marks] : changes.threads) {
    const auto owner = std::ranges::find(workspaces, key.workspaceID, &Workspace::id);
    const ChatThread* thread = owner == workspaces.end() ? nullptr : owner->thread(key.threadID);
    if (thread && threads_.contains(key.threadID)) collectThread(*thread, marks, batch);
  }
  return batch;
}

SaveBatch StoredTree::collectAll(const std::vector<Workspace>& workspaces) {
  TreeChanges all{.structure = true, .threads = {}};
  for (const auto& workspace : workspaces) {
    for (const auto& thread : workspace.threads) {
      TreeChanges::Thread& marks = all.threads[{workspace.id, thread.id}];
      marks.head = true;
      marks.runs.cutTo(0);
      marks.entries.cutTo(thread.entries.unread());
    }
  }
  takesAll_ = true;
  auto batch = collect(workspaces, all);
  takesAll_ = false;
  return batch;
}

// ---- workspaces and the places of threads -------------------------------------------------------

void StoredTree::collectStructure(const std::vector<Workspace>& workspaces, SaveBatch& batch) {
  for (auto& each : workspaces_) each.second.isPresent = false;
  for (auto& each : threads_) each.second.isPresent = false;
  std::vector<std::optional<std::int64_t>> stored;
  for (const auto& workspace : workspaces) {
    const auto known = workspaces_.find(workspace.id);
    stored.push_back(known == workspaces_.end() ? std::nullopt
                                                : std::optional(known->second.place));
  }
  const auto places = risingPlaces(stored);
  for (std::size_t i = 0; i < workspaces.size(); ++i) {
    collectWorkspace(workspaces[i], places[i], batch);
    collectThreadPlaces(workspaces[i], batch);
  }
  collectRemoved(batch);
}

void StoredTree::collectWorkspace(const Workspace& workspace, std::int64_t place,
                                  SaveBatch& batch) {
  const auto [found, isNew] = workspaces_.try_emplace(workspace.id);
  StoredWorkspace& stored = found->second;
  stored.isPresent = true;
  if (isNew) stored.number = ++lastNumber_;
  if (!isNew && !takesAll_ && stored.place == place && stored.name == workspace.name &&
      stored.path == workspace.path && stored.isPinned == workspace.isPinned) {
    return;
  }
  stored.place = place;
  stored.name = workspace.name;
  stored.path = workspace.path;
  stored.isPinned = workspace.isPinned;
  batch.workspaces[stored.number] = SaveBatch::WorkspaceRow{place, encodeHead(workspace)};
}

void StoredTree::collectThreadPlaces(const Workspace& workspace, SaveBatch& batch) {
  const std::int64_t owner = workspaces_.at(workspace.id).number;
  std::vector<std::optional<std::int64_t>> storedPlaces;
  for (const auto& thread : workspace.threads) {
    const auto known = threads_.find(thread.id);
    const bool wasHere = known != threads_.end() && known->second.row.workspace == owner;
    storedPlaces.push_back(wasHere ? std::optional(known->second.row.place) : std::nullopt);
  }
  const auto places = risingPlaces(storedPlaces);
  for (std::size_t i = 0; i < workspace.threads.size(); ++i) {
    const ChatThread& thread = workspace.threads[i];
    const auto [found, isNew] = threads_.try_emplace(thread.id);
    StoredThread& stored = found->second;
    stored.isPresent = true;
    if (isNew) stored.number = ++lastNumber_;
    if (isNew || stored.row.workspace != owner || stored.row.place != places[i]) {
      stored.row.workspace = owner;
      stored.row.place = places[i];
      batch.threads[stored.number] = stored.row;
    }
    if (isNew) collectThread(thread, {.head = true, .entries = {}, .runs = {}}, batch);
  }
}

void StoredTree::collectRemoved(SaveBatch& batch) {
  std::erase_if(threads_, [&batch](const auto& each) {
    if (!each.second.isPresent) batch.threads[each.second.number] = std::nullopt;
    return !each.second.isPresent;
  });
  std::erase_if(workspaces_, [&batch](const auto& each) {
    if (!each.second.isPresent) batch.workspaces[each.second.number] = std::nullopt;
    return !each.second.isPresent;
  });
}

// ---- one thread ---------------------------------------------------------------------------------

void StoredTree::collectThread(const ChatThread& thread, const TreeChanges::Thread& marks,
                               SaveBatch& batch) {
  StoredThread& stored = threads_.at(thread.id);
  collectList(thread.entries, marks.entries, static_cast<std::size_t>(stored.row.entries),
              stored.number, maxRowBytes_, batch.entries, batch.entryLengths);
  collectList(thread.runs, marks.runs, stored.runs, stored.number, maxRowBytes_, batch.runs,
              batch.runLengths);
  stored.runs = thread.runs.size();
  if (marks.head) batch.heads[stored.number] = encodeHead(thread);
  SaveBatch::ThreadRow row = stored.row;
  row.entries = static_cast<std::int64_t>(thread.entries.size());
  row.updatedAt = thread.updatedAt.secondsSinceReference();
  if (row == stored.row && !takesAll_) return;
  stored.row = row;
  batch.threads[stored.number] = row;
}

}  // namespace vantrell
