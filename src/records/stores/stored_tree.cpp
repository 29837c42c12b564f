#include "records/stores/stored_tree.h"

#include <optional>

#include "records/stores/conversation_json.h"

namespace vantrell {

namespace {

std::size_t hashOf(std::string_view bytes) {
  return std::hash<std::string_view>{}(bytes);
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
                           const ChatThread& thread, std::string_view head,
                           const std::vector<std::string_view>& runs) {
  StoredThread& stored = threads_[thread.id];
  stored = {
      .number = number, .row = row, .lineage = thread.entries.lineage(), .headHash = hashOf(head)};
  for (const auto& each : runs) stored.runHashes.push_back(hashOf(each));
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
  if (!isNew && stored.place == place && stored.name == workspace.name &&
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
    if (isNew) collectThread(thread, {.head = true, .allRuns = true, .runs = {}}, batch);
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
  collectEntries(thread, stored, batch);
  collectRuns(thread, stored, marks, batch);
  if (marks.head) {
    std::string head = encodeHead(thread);
    if (const std::size_t hash = hashOf(head); hash != stored.headHash) {
      stored.headHash = hash;
      batch.heads[stored.number] = std::move(head);
    }
  }
  SaveBatch::ThreadRow row = stored.row;
  row.entries = static_cast<std::int64_t>(thread.entries.size());
  row.updatedAt = thread.updatedAt.secondsSinceReference();
  if (row == stored.row) return;
  stored.row = row;
  batch.threads[stored.number] = row;
}

void StoredTree::collectRuns(const ChatThread& thread, StoredThread& stored,
                             const TreeChanges::Thread& marks, SaveBatch& batch) {
  auto& hashes = stored.runHashes;
  const std::size_t known = hashes.size();
  if (thread.runs.size() < known) batch.runLengths[stored.number] = thread.runs.size();
  hashes.resize(thread.runs.size());
  for (std::size_t i = 0; i < thread.runs.size(); ++i) {
    const RunRecord& run = thread.runs[i];
    if (i < known && !marks.allRuns && !marks.runs.contains(run.id)) continue;
    std::string record = encodeRow(run);
    const std::size_t hash = hashOf(record);
    if (i < known && hash == hashes[i]) continue;
    hashes[i] = hash;
    batch.runs[rowKey(stored.number, i)] = std::move(record);
  }
}

void StoredTree::collectEntries(const ChatThread& thread, StoredThread& stored, SaveBatch& batch) {
  const Transcript& entries = thread.entries;
  // One that was never read was never changed.
  if (!entries.isRead() && entries.lineage() == stored.lineage) return;
  auto changes = entries.takeChanges();
  if (entries.lineage() != stored.lineage) changes = {};  // another one took its place
  stored.lineage = entries.lineage();
  if (static_cast<std::int64_t>(entries.size()) < stored.row.entries) {
    batch.entryLengths[stored.number] = entries.size();
  }
  const auto put = [&](std::size_t place) {
    batch.entries[rowKey(stored.number, place)] = encodeRow(entries[place]);
  };
  for (const std::size_t place : changes.places) put(place);
  for (std::size_t i = changes.unchangedLength; i < entries.size(); ++i) put(i);
}

}  // namespace vantrell
