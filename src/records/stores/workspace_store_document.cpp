// The tree as one JSON document: what earlier versions kept in the settings, and what is exported
// and imported.
#include <fmt/format.h>

#include "platform/files/files.h"
#include "platform/storage/user_defaults.h"
#include "records/stores/conversation_json.h"
#include "records/stores/quarantine.h"
#include "records/stores/tree_reader.h"
#include "records/stores/workspace_store.h"

namespace vantrell {

namespace {

constexpr std::string_view documentKey = "savedWorkspaces.v1";

}  // namespace

// Earlier versions kept the tree as one document in the defaults. It goes from there when all of it
// is in the file, or quarantined.
std::vector<Workspace> WorkspaceStore::readDocument(std::vector<Workspace> fromFile) {
  const auto document = defaults_.data(documentKey);
  if (!document) return fromFile;
  auto decoded = decodeWorkspaces(*document, conversationJson);
  const bool fileIsNew = fromFile.empty() && !notice_ && !refusal_;
  if (decoded && fileIsNew) {
    makeIDsUnique(*decoded);
    documentMayGo_ = true;
    return std::move(*decoded);
  }
  const std::string_view name =
      decoded ? std::string_view("conversations from the settings") : quarantine::unreadable;
  const auto kept = quarantine::write(supportFolder_, name, now_, *document);
  documentMayGo_ = kept.has_value();
  if (kept && decoded) {
    tell(
        fmt::format("The settings hold conversations of an earlier version beside the present "
                    "ones. They were kept in \"{}\"; \"vantrell settings import\" takes them.",
                    *kept));
  } else if (kept) {
    tell(fmt::format("The stored conversations could not be read ({}). They were kept in \"{}\"{}",
                     decoded.error().text(), *kept,
                     fromFile.empty() ? "; a new list begins." : "."));
  } else if (fromFile.empty()) {
    const std::string problem =
        decoded ? std::string("The conversations of an earlier version are not taken over")
                : fmt::format("The stored conversations could not be read ({})",
                              decoded.error().text());
    refusal_ =
        fmt::format("{}. {}; so that nothing is lost, no change is saved until a copy can be kept.",
                    problem, kept.error().description);
    tell(*refusal_);
    if (decoded) {
      // The file could not be opened: at least they can be looked at.
      makeIDsUnique(*decoded);
      return std::move(*decoded);
    }
  } else {
    tell(
        fmt::format("The settings hold conversations of an earlier version beside the present "
                    "ones, and they could not be kept elsewhere: {}. They stay there.",
                    kept.error().description));
  }
  return fromFile;
}

void WorkspaceStore::forgetDocument() {
  (void)defaults_.remove(documentKey);
}

std::expected<WorkspaceStore::Peek, std::string> WorkspaceStore::peek() {
  const auto unreadableFile = [this](std::string_view reason) {
    return std::unexpected(
        fmt::format("The conversations in {} could not be read: {}", path_, reason));
  };
  if (!files::exists(path_)) {
    const auto document = defaults_.data(documentKey);
    if (!document) return Peek{};
    auto decoded = decodeWorkspaces(*document, conversationJson);
    if (!decoded) return unreadableFile(decoded.error().text());
    return Peek{std::move(*decoded)};
  }
  if (const auto look = ConversationFile::inspect(path_); look.damage) {
    return unreadableFile(*look.damage);
  }
  auto opened = ConversationFile::open(path_);
  if (!opened) return unreadableFile(opened.error().text);
  if (!opened->beginSnapshot()) return unreadableFile("another program is using it");
  Peek result;
  const auto reader = std::make_shared<TreeReader>(std::move(*opened), path_);
  reader->onDamage = [problems = result.problems](const std::string&, const std::string& sentence) {
    *problems += (problems->empty() ? "" : " ") + sentence;
  };
  const auto contents = reader->file().readContents();
  if (contents.damage) return unreadableFile(contents.damage->text);
  StoredTree nowhere;
  result.workspaces = reader->read(contents, nowhere);
  reattachOrphans(*reader, result.workspaces, Date());
  return result;
}

std::expected<WorkspaceStore::Export, std::string> WorkspaceStore::exportDocument() {
  auto seen = peek();
  if (!seen) return std::unexpected(std::move(seen.error()));
  Export result{.document = encodeWorkspaces(seen->workspaces, conversationJson)};
  result.workspaces = seen->workspaces.size();
  for (const auto& workspace : seen->workspaces) result.threads += workspace.threads.size();
  if (!seen->problems->empty()) result.notice = *seen->problems;
  return result;
}

std::expected<WorkspaceStore::Import, std::string> WorkspaceStore::importDocument(
    std::string_view document, Date now) {
  auto decoded = decodeWorkspaces(document, conversationJson);
  if (!decoded) {
    return std::unexpected(fmt::format("The document cannot be read: {}", decoded.error().text()));
  }
  makeIDsUnique(*decoded);
  // As the program writes paths: a folder is found by the text of its path.
  for (auto& workspace : *decoded) {
    if (workspace.path.starts_with('/')) workspace.path = files::standardized(workspace.path);
  }
  const auto present = readTree(now);
  if (refusal_) return std::unexpected(*refusal_);
  const auto kept = quarantine::write(supportFolder_, "conversations replaced by an import", now,
                                      encodeWorkspaces(present, conversationJson));
  if (!kept) {
    return std::unexpected(
        fmt::format("The present conversations could not be kept, so nothing was imported. {}",
                    kept.error().description));
  }
  if (!save(*decoded)) {
    unwritten_ = {};
    return std::unexpected(lastError_);
  }
  Import result{.quarantined = *kept};
  result.workspaces = decoded->size();
  for (const auto& workspace : *decoded) {
    result.threads += workspace.threads.size();
    // That of General is made at the next start.
    if (!files::exists(workspace.path) && workspace.path != generalPath_) ++result.withoutFolder;
  }
  return result;
}

}  // namespace vantrell
