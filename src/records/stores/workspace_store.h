// Keeps the conversation tree between starts: in "conversations.sqlite" of the support folder, as
// rows, so that a save costs what changed. One program owns it at a time. Main queue, but for
// write(). What cannot be read is kept aside and told, never written over.
#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/values/date.h"
#include "records/stores/conversation_file.h"
#include "records/stores/save_batch.h"
#include "records/stores/stored_tree.h"
#include "records/values/chat_thread.h"
#include "records/values/tree_changes.h"

namespace vantrell {

class TreeReader;
class UserDefaults;

class WorkspaceStore {
 public:
  /// The support folder is the program's own data folder; it must exist. The defaults are where
  /// earlier versions kept the tree, as one document. `maxRowBytes` is smaller in tests.
  WorkspaceStore(UserDefaults& defaults, std::string supportFolder,
                 std::size_t maxRowBytes = StoredTree::largestRow);
  ~WorkspaceStore();
  WorkspaceStore(const WorkspaceStore&) = delete;
  WorkspaceStore& operator=(const WorkspaceStore&) = delete;

  const std::string& supportFolder() const { return supportFolder_; }
  /// Working folder of the General workspace.
  const std::string& generalWorkspacePath() const { return generalPath_; }

  /// The stored tree, without the workspaces whose folder has gone (their conversations are kept
  /// aside first, or they stay), with the General workspace in front (made when there is none).
  /// Stores what it answers; `lastError` says when it could not. Transcripts are read at the first
  /// look into them. What cannot be read is kept aside first, and `notice` says where; when even
  /// that fails, nothing is ever written over it.
  std::vector<Workspace> load(Date now);

  struct Peek {
    std::vector<Workspace> workspaces;
    /// Sentences about what could not be read, so far: transcripts are read at the first look.
    std::shared_ptr<std::string> problems = std::make_shared<std::string>();
  };
  /// The tree as it is stored at this moment, whatever is written meanwhile: the rules of load()
  /// are not applied and nothing is changed, so that it may be called beside the program that owns
  /// the store.
  std::expected<Peek, std::string> peek();

  /// What a save must write for these changes. It counts as stored from now on: write() keeps what
  /// it could not write for the next time.
  SaveBatch collect(const std::vector<Workspace>& workspaces, const TreeChanges& changes);
  /// The same for all of the tree that is in memory.
  SaveBatch collectAll(const std::vector<Workspace>& workspaces);
  /// A sentence for the user if the file was damaged and has been mended: what was lost of it and
  /// is in memory should be written again. Else the error, one line with what to do.
  using Written = std::expected<std::optional<std::string>, std::string>;
  /// Makes the batch durable, with what earlier calls could not write: all of it or nothing. Any
  /// thread, one call at a time.
  Written write(SaveBatch batch);
  /// Writes the whole tree. False when that failed; the stored tree is as it was.
  bool save(const std::vector<Workspace>& workspaces);
  const std::string& lastError() const { return lastError_; }

  /// Sentences for the user about what load() met, or absent.
  const std::optional<std::string>& notice() const { return notice_; }
  /// Called with such a sentence for damage that is met later, at a look into a transcript.
  std::function<void(std::string_view)> onNotice;

  // The whole tree as one JSON document, for another machine or a backup.

  struct Export {
    std::string document;
    std::optional<std::string> notice;  // what of it could not be read
    std::size_t workspaces = 0, threads = 0;
  };
  /// As peek() sees it.
  std::expected<Export, std::string> exportDocument();
  struct Import {
    std::string quarantined;  // where the replaced tree is
    std::size_t workspaces = 0, threads = 0;
    std::size_t withoutFolder = 0;  // workspaces that the next load() drops
  };
  /// Replaces the stored tree. Refused, with nothing changed, when the document does not decode or
  /// the present tree cannot be kept. In place of load(); what notice() says still counts.
  std::expected<Import, std::string> importDocument(std::string_view document, Date now);

 private:
  /// The stored tree as it is, from the file or an earlier version's document.
  std::vector<Workspace> readTree(Date now);
  std::vector<Workspace> readFile();
  std::vector<Workspace> salvage(const std::string& reason);
  std::vector<Workspace> readDocument(std::vector<Workspace> fromFile);
  void forgetDocument();
  void dropWithoutFolder(std::vector<Workspace>& workspaces);
  void applyLoadRules(std::vector<Workspace>& workspaces);
  void reattachOrphans(TreeReader& reader, std::vector<Workspace>& workspaces, Date now) const;
  SaveBatch withNotes(SaveBatch batch);
  /// write(), on the main queue.
  bool writeNow(SaveBatch batch);
  std::expected<std::string, std::string> mend();
  void tell(std::string_view sentence);
  /// Keeps a copy of the file, once for each piece that is damaged, and tells.
  void damageMet(const std::string& piece, const std::string& sentence);

  UserDefaults& defaults_;
  const std::string supportFolder_;
  const std::string generalPath_;
  const std::string path_;
  const std::size_t maxRowBytes_;
  Date now_;  // of the load, for names
  StoredTree stored_;
  std::optional<ConversationFile> writer_;  // belongs to write() after the load
  SaveBatch unwritten_;                     // the same
  std::string damaged_;                     // the same: a copy of the file as it was, to be mended
  std::shared_ptr<TreeReader> reader_;
  std::map<std::string, std::string> notes_;     // as stored
  std::map<std::string, std::string> newNotes_;  // go with the next batch
  std::optional<std::string> copy_;  // of the file with its damage, made in this process
  std::string lastError_;
  std::optional<std::string> notice_;
  std::optional<std::string> refusal_;  // why nothing may be written
  bool isLoaded_ = false;               // notices go to onNotice from now on
  bool documentMayGo_ = false;          // from the defaults, as soon as the tree is stored
};

}  // namespace vantrell
