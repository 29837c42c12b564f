#include "app/conversation_transfer.h"

#include <fmt/format.h>

#include "engine/core/workspace_tree.h"
#include "platform/text/visible_text.h"

namespace vantrell {

std::expected<WorkspaceStore::Peek, std::string> storedConversations(const UserFolders& folders,
                                                                     Date now) {
  if (!files::exists(folders.support)) return WorkspaceStore::Peek();
  const auto defaults = UserDefaults::inMemory();
  auto seen = WorkspaceStore(*defaults, folders.support).peek();
  if (!seen || folders.areInUse()) return seen;
  // What a process that has ended left open is over.
  for (auto& workspace : seen->workspaces) {
    for (auto& thread : workspace.threads) {
      bool wasOpen = false;
      for (auto& run : thread.runs) wasOpen |= interruptIfOpen(run, now);
      for (std::size_t i = 0; wasOpen && i < thread.entries.size(); ++i) {
        const auto& status = std::as_const(thread.entries)[i].status;
        if (status && isOpenToolStatus(*status)) thread.entries[i].status = "failed";
      }
    }
  }
  return seen;
}

std::expected<WorkspaceStore::Export, std::string> exportConversations(const UserFolders& folders) {
  const auto defaults = folders.defaultsForReading();
  if (!defaults) return std::unexpected(defaults.error());
  return WorkspaceStore(**defaults, folders.support).exportDocument();
}

Result<> writeExport(const std::string& path, std::string_view document, bool replaces) {
  if (!replaces && files::exists(path)) {
    return refuse(fmt::format("\"{}\" exists already.", text::onOneLine(path)));
  }
  // Conversations may hold anything.
  const auto written = files::writeAtomically(path, document, 0600);
  if (!written) return refuse(written.error().description);
  return {};
}

ConversationImport::ConversationImport(UserState state)
    : state_(std::move(state)), store_(*state_.defaults, state_.folders.support) {}

std::expected<std::unique_ptr<ConversationImport>, std::string> ConversationImport::begin(
    UserFolders folders, Date now) {
  auto state = UserState::open(std::move(folders), now);
  if (!state) return std::unexpected(std::move(state.error()));
  return std::unique_ptr<ConversationImport>(new ConversationImport(std::move(*state)));
}

std::expected<std::vector<Workspace>, std::string> ConversationImport::present() {
  auto seen = store_.peek();
  if (!seen) return std::unexpected(std::move(seen.error()));
  return std::move(seen->workspaces);
}

std::expected<WorkspaceStore::Import, std::string> ConversationImport::replace(
    std::string_view document, Date now) {
  return store_.importDocument(document, now);
}

std::optional<std::string> ConversationImport::takeNotice() {
  auto notice = std::exchange(state_.notice, std::nullopt);
  return notice ? notice : store_.notice();
}

}  // namespace vantrell
