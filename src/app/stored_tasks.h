// Searches and exports the tasks off the main queue: reads what is stored, after everything that
// was changed has been written. Main queue; owned by AppModel.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "engine/core/refusal.h"
#include "engine/core/workspace_tree.h"
#include "platform/queues/dispatch.h"
#include "views/task_search.h"

namespace vantrell {

class StoredTasks : public std::enable_shared_from_this<StoredTasks> {
 public:
  /// Reads on `background`; without it, on the main queue. What is given must outlive it.
  StoredTasks(MainQueue& main, WorkspaceTree& tree, Executor* background,
              std::string supportFolder);

  /// What WorkspaceOperations::openSearchResult() opens, with the words to show.
  struct Found {
    ThreadExecutionKey key;
    std::optional<std::string> entryID;  // nullopt: the title of the task
    std::string project, title;
    std::string before, hit, after;  // as in SearchHit
  };
  /// The first `most`. A further search ends one that is under way, which then never calls `done`.
  void search(views::SearchRequest request, std::size_t most,
              std::function<void(Result<std::vector<Found>>)> done);

  /// Writes the conversation as Markdown into a file that only its owner can read. Refused where
  /// the file exists and is not to be replaced.
  void exportConversation(const ThreadExecutionKey& key, std::string path, bool replaces,
                          std::function<void(Result<>)> done);
  /// The same for all conversations, as one JSON document.
  void exportAll(std::string path, bool replaces, std::function<void(Result<>)> done);

 private:
  template <typename T>
  void inBackground(std::function<Result<T>(const std::string& supportFolder)> work,
                    std::function<void(Result<T>)> done);

  MainQueue& main_;
  WorkspaceTree& tree_;
  Executor& background_;
  const std::string supportFolder_;
  std::stop_source searching_;
};

}  // namespace vantrell
