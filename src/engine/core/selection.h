// What the user looks at: one workspace, one conversation in it, one section. Kept between starts.
// Main queue.
#pragma once

#include <optional>
#include <string>

#include "engine/core/changes.h"
#include "records/values/chat_thread.h"

namespace vantrell {

class UserDefaults;

enum class AppSection { chat, build, imagine, remote };

class Selection {
 public:
  Selection(UserDefaults& defaults, Changes& changes);

  /// The stored selection as far as it still exists, else the first workspace and its first thread.
  void restore(const std::vector<Workspace>& workspaces);
  /// Sets and stores both; an absent id is removed from the store. The entry is not stored.
  void select(std::optional<Uuid> workspaceID, std::optional<Uuid> threadID,
              std::optional<std::string> entryID = std::nullopt);

  const std::optional<Uuid>& workspaceID() const { return workspaceID_; }
  const std::optional<Uuid>& threadID() const { return threadID_; }
  /// The entry that an interface should bring into view, as the place of a search result; absent
  /// when the conversation is looked at as ever, at its end.
  const std::optional<std::string>& entryID() const { return entryID_; }
  /// The selected conversation; absent without a thread.
  std::optional<ThreadExecutionKey> key() const;

  AppSection section() const { return section_; }
  void setSection(AppSection section);

 private:
  UserDefaults& defaults_;
  Changes& changes_;
  AppSection section_ = AppSection::build;
  std::optional<Uuid> workspaceID_;
  std::optional<Uuid> threadID_;
  std::optional<std::string> entryID_;
};

}  // namespace vantrell
