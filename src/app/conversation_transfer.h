// The conversations as they are stored: to be looked at and searched, exported, and replaced by
// those of a document. Works beside the process that owns the state, except for an import. What is
// named here blocks for as long as the disk takes; StoredTasks does it in the background.
#pragma once

#include <expected>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/user_state.h"
#include "engine/core/refusal.h"
#include "records/stores/workspace_store.h"

namespace vantrell {

/// Takes no lock and changes nothing. Where no process owns the state, runs that one has left open
/// are shown as interrupted. Errors are sentences for the user.
std::expected<WorkspaceStore::Peek, std::string> storedConversations(const UserFolders& folders,
                                                                     Date now);

/// All of them as one JSON document.
std::expected<WorkspaceStore::Export, std::string> exportConversations(const UserFolders& folders);

/// One of them, or all, as a file that only its owner can read. Refused where the file exists and
/// is not to be replaced.
Result<> writeExport(const std::string& path, std::string_view document, bool replaces);

/// Replaces all conversations by those of a document. Takes the lock, so that no other process owns
/// the state meanwhile, and holds it until it is destroyed.
class ConversationImport {
 public:
  static std::expected<std::unique_ptr<ConversationImport>, std::string> begin(UserFolders folders,
                                                                               Date now);
  /// What would be replaced, for the user to decide.
  std::expected<std::vector<Workspace>, std::string> present();
  /// The error says why nothing was changed.
  std::expected<WorkspaceStore::Import, std::string> replace(std::string_view document, Date now);
  /// What the user should know about what was stored, once; there may be more after replace().
  std::optional<std::string> takeNotice();

 private:
  explicit ConversationImport(UserState state);

  UserState state_;
  WorkspaceStore store_;
};

}  // namespace vantrell
