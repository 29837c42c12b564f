// Keeps the conversation tree between starts, as one document in the user defaults. Main queue.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/date.h"
#include "records/chat_thread.h"

namespace vantrell {

class UserDefaults;

class WorkspaceStore {
 public:
  /// The support folder is the program's own data folder; it must exist.
  WorkspaceStore(UserDefaults& defaults, std::string supportFolder);

  /// Working folder of the General workspace.
  const std::string& generalWorkspacePath() const { return generalPath_; }

  /// The stored tree, without the workspaces whose folder has gone, with the General workspace in
  /// front (made when there is none). Saves what it answers. A document that cannot be read is kept
  /// aside first, and `notice` says where; when even that fails, nothing is ever written over it.
  std::vector<Workspace> load(Date now);

  /// False when the document could not be stored; lastError() says why. The former one stands.
  bool save(const std::vector<Workspace>& workspaces);
  const std::string& lastError() const { return lastError_; }

  /// A sentence for the user about something that load() met, or absent.
  const std::optional<std::string>& notice() const { return notice_; }

 private:
  std::vector<Workspace> readDocument(Date now);

  UserDefaults& defaults_;
  std::string supportFolder_;
  std::string generalPath_;
  std::string lastError_;
  std::optional<std::string> notice_;
  bool mayOverwrite_ = true;  // false while the only copy of something unreadable is in the store
};

}  // namespace vantrell
