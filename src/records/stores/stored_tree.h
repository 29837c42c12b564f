// The rows that the store holds: their numbers, places and counts, no content. Turns marked changes
// into rows to write. Belongs to WorkspaceStore. Main queue.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "records/stores/save_batch.h"
#include "records/values/chat_thread.h"
#include "records/values/tree_changes.h"

namespace vantrell {

class StoredTree {
 public:
  /// In bytes; SQLite takes no more than a billion. An entry that needs more is cut.
  static constexpr std::size_t largestRow = 900'000'000;
  explicit StoredTree(std::size_t maxRowBytes = largestRow) : maxRowBytes_(maxRowBytes) {}

  // While the store is read.

  void addWorkspace(std::int64_t number, const SaveBatch::WorkspaceRow& row,
                    const Workspace& workspace);
  void addThread(std::int64_t number, const SaveBatch::ThreadRow& row, const ChatThread& thread);
  /// Numbers up to this one are taken.
  void reserve(std::int64_t number) { lastNumber_ = std::max(lastNumber_, number); }

  /// What must be written for these changes; from now on that counts as stored.
  SaveBatch collect(const std::vector<Workspace>& workspaces, const TreeChanges& changes);
  /// Every part of the tree that is in memory, whatever is stored.
  SaveBatch collectAll(const std::vector<Workspace>& workspaces);

 private:
  struct StoredWorkspace {
    std::int64_t number = 0;
    std::int64_t place = 0;
    std::string name, path;
    bool isPinned = false;
    bool isPresent = true;  // in the tree, while its structure is compared
  };
  struct StoredThread {
    std::int64_t number = 0;
    SaveBatch::ThreadRow row;
    std::size_t runs = 0;  // how many
    bool isPresent = true;
  };

  void collectStructure(const std::vector<Workspace>& workspaces, SaveBatch& batch);
  void collectWorkspace(const Workspace& workspace, std::int64_t place, SaveBatch& batch);
  void collectThreadPlaces(const Workspace& workspace, SaveBatch& batch);
  void collectRemoved(SaveBatch& batch);
  void collectThread(const ChatThread& thread, const TreeChanges::Thread& marks, SaveBatch& batch);

  std::size_t maxRowBytes_;
  std::unordered_map<Uuid, StoredWorkspace> workspaces_;
  std::unordered_map<Uuid, StoredThread> threads_;
  std::int64_t lastNumber_ = 0;  // of workspaces and threads alike
  bool takesAll_ = false;        // also rows that are as they are stored
};

}  // namespace vantrell
