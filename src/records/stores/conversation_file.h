// The SQLite file that keeps the conversations, as rows; it knows nothing of what is in them. One
// connection: the writer and the readers each have their own. Any thread, one at a time.
#pragma once

#include <expected>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/storage/database.h"
#include "records/stores/save_batch.h"

namespace vantrell {

class ConversationFile {
 public:
  /// Everything but the entries, by number.
  struct Contents {
    std::map<std::int64_t, SaveBatch::WorkspaceRow> workspaces;
    std::map<std::int64_t, SaveBatch::ThreadRow> threads;
    SaveBatch::Rows heads;
    SaveBatch::Rows runs;
    std::map<std::string, std::string> notes;
    /// What kept some rows from being read, if anything.
    std::optional<DatabaseError> damage;
  };

  /// Opens the file; a new one gets its tables. Its folder must exist.
  static std::expected<ConversationFile, DatabaseError> open(const std::string& path);
  struct Inspection {
    std::optional<std::string> damage;  // why it cannot be whole
    bool isDoubtful = false;            // only isSound() can tell
  };
  /// By the first page and the length of a file that may be there. Opens nothing, so that a damaged
  /// file stays as it is.
  static Inspection inspect(const std::string& path);
  /// Whether SQLite finds each page in its place: reads the whole file.
  bool isSound();

  /// Whatever can be read.
  Contents readContents();
  /// Those in the places [first, last); nullopt where one cannot be read.
  std::vector<std::optional<std::string>> readEntries(std::int64_t thread, std::size_t first,
                                                      std::size_t last);
  /// How many entries the rows of this thread make, for one whose own row is lost.
  std::size_t countEntries(std::int64_t thread);

  /// All of the batch is on the disk, or nothing.
  std::expected<void, DatabaseError> write(const SaveBatch& batch);
  /// Makes a file whose pages are damaged whole again, for all who have it open: the rows that can
  /// be read stay, under their numbers. Uses `scratch`, where nothing may be. Nothing is changed
  /// after a failure.
  bool mend(const std::string& scratch);
  /// To a new owner-only file, whatever the pages hold. Blocks for as long as that takes.
  bool copyTo(const std::string& path) { return database_.copyTo(path); }
  /// All further reading is of this moment, whatever others write.
  bool beginSnapshot() {
    return database_.execute("BEGIN") && database_.number("SELECT count(*) FROM notes") >= 0;
  }
  /// The highest number of a thread that has rows of any kind.
  std::int64_t lastThread();

 private:
  explicit ConversationFile(Database database) : database_(std::move(database)) {}
  bool createTables();
  bool writeRows(const SaveBatch& batch);
  bool writeStructure(const SaveBatch& batch);
  bool removeThread(std::int64_t number);
  bool cut(const char* table, const SaveBatch::Lengths& lengths);
  bool put(const char* table, const SaveBatch::Rows& rows);

  Database database_;
};

}  // namespace vantrell
