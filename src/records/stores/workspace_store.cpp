#include "records/stores/workspace_store.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>

#include "platform/files/dated_name.h"
#include "platform/files/files.h"
#include "records/stores/conversation_json.h"
#include "records/stores/quarantine.h"
#include "records/stores/tree_reader.h"

namespace vantrell {

namespace {

/// More than an empty task, or a title.
bool holdsConversations(const Workspace& workspace) {
  return std::ranges::any_of(workspace.threads, [](const ChatThread& thread) {
    return !thread.entries.empty() || !thread.runs.empty() || !thread.queuedPrompts.empty() ||
           !thread.draftText.value_or("").empty() || !thread.draftAttachments.empty();
  });
}

}  // namespace

WorkspaceStore::WorkspaceStore(UserDefaults& defaults, std::string supportFolder,
                               std::size_t maxRowBytes)
    : defaults_(defaults),
      supportFolder_(std::move(supportFolder)),
      generalPath_(files::standardized("General Chats", supportFolder_)),
      path_(supportFolder_ + "/conversations.sqlite"),
      maxRowBytes_(maxRowBytes) {}

WorkspaceStore::~WorkspaceStore() {
  if (reader_) reader_->onDamage = nullptr;  // transcripts may outlive us, and with them the reader
}

// ---- loading ------------------------------------------------------------------------------------

std::vector<Workspace> WorkspaceStore::load(Date now) {
  // Without the folder the General workspace is of little use, but nothing else depends on it.
  (void)files::createFolders(generalPath_);
  std::vector<Workspace> workspaces = readTree(now);
  applyLoadRules(workspaces);
  lastError_.clear();
  // What comes from the file is there already; what does not is new.
  const bool isStored = writeNow(collect(workspaces, {.structure = true, .threads = {}}));
  if (isStored && std::exchange(documentMayGo_, false)) forgetDocument();
  isLoaded_ = true;
  return workspaces;
}

// The folder may be on a disk that is not there today, so its conversations must outlive the rule.
void WorkspaceStore::dropWithoutFolder(std::vector<Workspace>& workspaces) {
  const auto isGone = [](const Workspace& each) { return !files::exists(each.path); };
  std::vector<Workspace> gone;
  std::ranges::copy_if(workspaces, std::back_inserter(gone), [&](const Workspace& each) {
    return isGone(each) && holdsConversations(each);
  });
  // Where nothing may be written, nothing is lost.
  if (gone.empty() || refusal_) {
    std::erase_if(workspaces, isGone);
    return;
  }
  std::string named;
  for (const auto& each : gone) {
    named += fmt::format("{}\"{}\" ({})", named.empty() ? "" : ", ", each.name, each.path);
  }
  const bool isOne = gone.size() == 1;
  const std::string missing = fmt::format("The {} of {} {} missing", isOne ? "folder" : "folders",
                                          named, isOne ? "is" : "are");
  const auto kept = quarantine::write(supportFolder_, "conversations of missing folders", now_,
                                      encodeWorkspaces(gone, conversationJson));
  if (kept) {
    std::erase_if(workspaces, isGone);
    return tell(fmt::format(
        "{}. The conversations there are no longer listed; they were kept in \"{}\", in "
        "the form that \"vantrell settings import\" takes.",
        missing, *kept));
  }
  tell(fmt::format("{}. The conversations there could not be kept elsewhere, so they stay: {}.",
                   missing, kept.error().description));
}

void WorkspaceStore::applyLoadRules(std::vector<Workspace>& workspaces) {
  dropWithoutFolder(workspaces);
  const auto general = std::ranges::find_if(workspaces, [this](const Workspace& each) {
    return files::standardized(each.path) == generalPath_;
  });
  if (general == workspaces.end()) {
    workspaces.insert(workspaces.begin(), Workspace::makeGeneral(generalPath_, now_));
  } else {
    general->name = "General";
    std::rotate(workspaces.begin(), general, general + 1);
  }
}

/// Conversations whose project could not be read are shown in General.
void WorkspaceStore::reattachOrphans(TreeReader& reader, std::vector<Workspace>& workspaces,
                                     Date now) const {
  if (reader.orphans.empty()) return;
  auto general = std::ranges::find(workspaces, generalPath_, &Workspace::path);
  if (general == workspaces.end()) {
    general = workspaces.insert(workspaces.begin(), Workspace::makeGeneral(generalPath_, now));
    general->threads.clear();
  }
  std::ranges::move(std::exchange(reader.orphans, {}), std::back_inserter(general->threads));
}

std::vector<Workspace> WorkspaceStore::readTree(Date now) {
  now_ = now;
  stored_ = StoredTree(maxRowBytes_);
  unwritten_ = {};
  notes_.clear();
  notice_.reset();
  refusal_.reset();
  writer_.reset();
  if (reader_) reader_->onDamage = nullptr;
  reader_.reset();
  isLoaded_ = documentMayGo_ = false;
  return readDocument(readFile());
}

std::vector<Workspace> WorkspaceStore::readFile() {
  const auto look = ConversationFile::inspect(path_);
  if (look.damage) return salvage(*look.damage);
  std::error_code code;
  if (std::filesystem::file_size(path_, code) == 0 && !code) {
    tell(fmt::format("The file of the stored conversations, {}, was empty; a new list begins.",
                     path_));
  }
  auto opened = ConversationFile::open(path_);
  if (!opened) {
    const auto& error = opened.error();
    using enum DatabaseError::Kind;
    if (error.kind == notADatabase || error.kind == damaged) return salvage(error.text);
    refusal_ = fmt::format("The conversations in {} could not be opened: {}", path_, error.text);
    tell(fmt::format("{}. Nothing is saved until that is mended and Vantrell starts again.",
                     *refusal_));
    return {};
  }
  if (look.isDoubtful && !opened->isSound()) {
    opened = std::unexpected(DatabaseError{});
    return salvage("it is cut short");
  }
  const auto contents = opened->readContents();
  if (contents.damage) {
    const std::string reason = contents.damage->text;
    opened = std::unexpected(DatabaseError{});
    return salvage(reason);
  }
  auto reading = ConversationFile::open(path_);
  if (!reading) {
    refusal_ =
        fmt::format("The conversations in {} could not be opened: {}", path_, reading.error().text);
    tell(*refusal_ + ".");
    return {};
  }
  writer_.emplace(std::move(*opened));
  notes_ = contents.notes;
  reader_ = std::make_shared<TreeReader>(std::move(*reading), path_);
  reader_->onDamage = [this](const std::string& piece, const std::string& sentence) {
    damageMet(piece, sentence);
  };
  auto workspaces = reader_->read(contents, stored_);
  reattachOrphans(*reader_, workspaces, now_);
  return workspaces;
}

// The damaged file goes out of the way whole; what can be read of a copy becomes the new one.
std::vector<Workspace> WorkspaceStore::salvage(const std::string& reason) {
  const auto kept = quarantine::moveDatabase(path_, quarantine::unreadable, now_);
  if (!kept) {
    refusal_ = fmt::format(
        "The stored conversations could not be read ({}). {}; so that nothing is lost, no change "
        "is saved until a copy can be kept.",
        reason, kept.error().description);
    tell(*refusal_);
    return {};
  }
  std::vector<Workspace> workspaces;
  const std::string scratch = path_ + ".salvage";
  if (quarantine::copyForReading(*kept, scratch)) {
    if (auto file = ConversationFile::open(scratch)) {
      const auto reader = std::make_shared<TreeReader>(std::move(*file), scratch);
      StoredTree nowhere;
      workspaces = reader->read(reader->file().readContents(), nowhere);
      reattachOrphans(*reader, workspaces, now_);
      for (auto& workspace : workspaces) {
        for (auto& thread : workspace.threads) (void)thread.entries.begin();  // reads it
      }
    }
  }
  for (const char* suffix : {"", "-wal", "-shm"}) (void)files::remove(scratch + suffix);
  std::size_t count = 0;
  for (const auto& workspace : workspaces) count += workspace.threads.size();
  tell(fmt::format(
      "The stored conversations could not be read ({}). The file was kept in \"{}\"; {}", reason,
      *kept,
      count == 0 ? std::string("a new list begins.")
                 : fmt::format("{} conversations could be saved from it, in full or "
                               "in part.",
                               count)));
  makeIDsUnique(workspaces);
  if (auto fresh = ConversationFile::open(path_)) {
    writer_.emplace(std::move(*fresh));
  } else {
    refusal_ = fmt::format("A new store of conversations could not be made in {}: {}", path_,
                           fresh.error().text);
    tell(*refusal_ + ".");
  }
  return workspaces;
}

void WorkspaceStore::tell(std::string_view sentence) {
  if (isLoaded_) {
    if (onNotice) onNotice(sentence);
    return;
  }
  notice_ = notice_ ? fmt::format("{} {}", *notice_, sentence) : std::string(sentence);
}

void WorkspaceStore::damageMet(const std::string& piece, const std::string& sentence) {
  const std::string note = "copy of damaged " + piece;
  if (const auto known = notes_.find(note); known != notes_.end() && files::exists(known->second)) {
    return tell(fmt::format("{} A copy of the file is in \"{}\".", sentence, known->second));
  }
  if (!copy_) {
    const std::string path =
        files::datedName(supportFolder_, "conversations with damage", now_, ".sqlite");
    if (reader_ && reader_->file().copyTo(path)) copy_ = path;
  }
  if (!copy_) {
    return tell(
        fmt::format("{} No copy of the file could be kept; it is not written over as long "
                    "as that part of the conversation is not changed.",
                    sentence));
  }
  notes_[note] = newNotes_[note] = *copy_;
  tell(fmt::format("{} A copy of the file was kept in \"{}\".", sentence, *copy_));
}

// ---- saving -------------------------------------------------------------------------------------

SaveBatch WorkspaceStore::collect(const std::vector<Workspace>& workspaces,
                                  const TreeChanges& changes) {
  if (refusal_ || !writer_) return {};  // nothing counts as stored
  return withNotes(stored_.collect(workspaces, changes));
}

SaveBatch WorkspaceStore::collectAll(const std::vector<Workspace>& workspaces) {
  if (refusal_ || !writer_) return {};
  return withNotes(stored_.collectAll(workspaces));
}

SaveBatch WorkspaceStore::withNotes(SaveBatch batch) {
  batch.notes = std::exchange(newNotes_, {});
  return batch;
}

WorkspaceStore::Written WorkspaceStore::write(SaveBatch batch) {
  if (refusal_) return std::unexpected(*refusal_);
  if (!writer_) return std::unexpected("The conversations were not loaded");
  unwritten_.add(std::move(batch));
  if (unwritten_.empty()) return std::nullopt;
  // SQLite goes on to write into a file that was removed or renamed.
  if (!files::exists(path_)) {
    return std::unexpected(
        fmt::format("Could not save the conversations: {} is no longer there", path_));
  }
  auto written = writer_->write(unwritten_);
  std::optional<std::string> notice;
  if (!written && written.error().kind == DatabaseError::Kind::damaged) {
    auto mended = mend();
    if (!mended) return std::unexpected(std::move(mended.error()));
    notice = std::move(*mended);
    written = writer_->write(unwritten_);
  }
  if (!written) {
    return std::unexpected(fmt::format("Could not save the conversations in {}: {}", path_,
                                       written.error().withAdvice()));
  }
  unwritten_ = {};
  return notice;
}

/// First a copy of the file as it is goes aside. Answers a sentence for the user.
std::expected<std::string, std::string> WorkspaceStore::mend() {
  if (damaged_.empty()) {
    const auto copy = files::datedName(supportFolder_, quarantine::unreadable, now_, ".sqlite");
    if (!writer_->copyTo(copy)) {
      return std::unexpected(fmt::format(
          "The conversations in {} are damaged, and before that can be mended a copy of "
          "them must be kept in {}, which failed. See that there is room for it",
          path_, supportFolder_));
    }
    damaged_ = copy;
  }
  if (!writer_->mend(path_ + ".mending")) {
    return std::unexpected(fmt::format(
        "The conversations in {} are damaged and could not be mended. A copy of them is "
        "in \"{}\". See that there is room in {}",
        path_, damaged_, supportFolder_));
  }
  return fmt::format(
      "The stored conversations were damaged and have been mended with all that could be read. The "
      "file as it was is kept in \"{}\".",
      std::exchange(damaged_, {}));
}

bool WorkspaceStore::writeNow(SaveBatch batch) {
  auto written = write(std::move(batch));
  if (!written) {
    lastError_ = std::move(written.error());
  } else if (*written) {
    tell(**written);
  }
  return written.has_value();
}

bool WorkspaceStore::save(const std::vector<Workspace>& workspaces) {
  return writeNow(collectAll(workspaces));
}

}  // namespace vantrell
