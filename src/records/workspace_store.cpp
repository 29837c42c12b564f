#include "records/workspace_store.h"

#include <fmt/format.h>

#include "platform/files.h"
#include "platform/user_defaults.h"
#include "records/conversation_json.h"

namespace vantrell {

namespace {
constexpr std::string_view documentKey = "savedWorkspaces.v1";
}

WorkspaceStore::WorkspaceStore(UserDefaults& defaults, std::string supportFolder)
    : defaults_(defaults),
      supportFolder_(std::move(supportFolder)),
      generalPath_(files::standardized("General Chats", supportFolder_)) {}

std::vector<Workspace> WorkspaceStore::load(Date now) {
  // Without the folder the General workspace is of little use, but nothing else depends on it.
  (void)files::createFolders(generalPath_);

  std::vector<Workspace> workspaces = readDocument(now);
  std::erase_if(workspaces, [](const Workspace& each) { return !files::exists(each.path); });

  const auto general = std::ranges::find_if(workspaces, [this](const Workspace& each) {
    return files::standardized(each.path) == generalPath_;
  });
  if (general == workspaces.end()) {
    workspaces.insert(workspaces.begin(), Workspace::makeGeneral(generalPath_, now));
  } else {
    general->name = "General";
    std::rotate(workspaces.begin(), general, general + 1);
  }
  save(workspaces);
  return workspaces;
}

std::vector<Workspace> WorkspaceStore::readDocument(Date now) {
  const auto document = defaults_.data(documentKey);
  if (!document) return {};
  auto decoded = decodeWorkspaces(*document, conversationJson);
  if (decoded) return std::move(*decoded);

  const std::string aside =
      fmt::format("{}/conversations that could not be read {}.json", supportFolder_, iso8601(now));
  const auto kept = files::writeAtomically(aside, *document, 0600);
  mayOverwrite_ = kept.has_value();
  notice_ =
      fmt::format("The stored conversations could not be read ({}). {}", decoded.error().text(),
                  kept ? fmt::format("They were kept in \"{}\"; a new list begins.", aside)
                       : fmt::format("{}; so that nothing is lost, no change is saved until "
                                     "a copy can be kept.",
                                     kept.error().description));
  return {};
}

bool WorkspaceStore::save(const std::vector<Workspace>& workspaces) {
  if (!mayOverwrite_) {
    lastError_ = *notice_;
    return false;
  }
  if (defaults_.setData(documentKey, encodeWorkspaces(workspaces, conversationJson))) return true;
  lastError_ = defaults_.lastError();
  return false;
}

}  // namespace vantrell
