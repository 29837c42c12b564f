// Makes the tree from the rows of a file. Transcripts hold on to it and read their entries later.
// What cannot be read has a placeholder in its place, so that all else keeps its own, and is
// reported. Owned by WorkspaceStore and by the transcripts. Main queue, but for readInBackground().

#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "records/stores/conversation_file.h"
#include "records/stores/stored_tree.h"
#include "records/values/chat_thread.h"

namespace vantrell {

class TreeReader : public std::enable_shared_from_this<TreeReader> {
 public:
  /// `path` is the file's, for a second connection.
  TreeReader(ConversationFile file, std::string path)
      : file_(std::move(file)), path_(std::move(path)) {}

  /// Called with a name for the piece that is damaged and a sentence for the user.
  std::function<void(const std::string& piece, const std::string& sentence)> onDamage;

  /// Notes in `stored` what it reads.
  std::vector<Workspace> read(const ConversationFile::Contents& contents, StoredTree& stored);
  /// Conversations whose workspace could not be read, after read().
  std::vector<ChatThread> orphans;

  ConversationFile& file() { return file_; }

 private:
  class ThreadSource;

  ChatThread readThread(std::int64_t number, const ConversationFile::Contents& contents,
                        const SaveBatch::ThreadRow& row, StoredTree& stored);
  std::vector<RunRecord> readRuns(const std::vector<std::string_view>& records);
  void damaged(const std::string& piece, const std::string& sentence);

  ConversationFile file_;
  const std::string path_;
  std::optional<ConversationFile> background_;  // belongs to the thread of readInBackground()
  std::set<Uuid> seen_;                         // ids of threads, each of which names one
};

}  // namespace vantrell
