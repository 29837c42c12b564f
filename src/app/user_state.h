// What belongs to the user and to one process at a time: the folders, the lock on them, and the
// settings. Main thread; opening blocks.
#pragma once

#include <expected>
#include <memory>
#include <optional>
#include <string>

#include "platform/files/files.h"
#include "platform/secrets/secret_store.h"
#include "platform/storage/user_defaults.h"
#include "platform/values/date.h"

namespace vantrell {

class OrchestrationStore;

struct UserFolders {
  std::string support;  // conversations' folders, orchestration, secrets
  std::string config;   // settings

  /// The user's own, where one is empty.
  UserFolders orOwn() const;
  /// The same, made owner-only when they are missing. The error is a sentence or two for the user.
  std::expected<UserFolders, std::string> made() const;
  /// Whether the state can only be looked at: another process owns it at this moment, or nothing
  /// can be written there, on a full disk or a read-only one.
  bool areInUse() const;
  /// The process that owns the state at this moment, if one does.
  std::optional<pid_t> owner() const;
  std::string defaultsPath() const { return config + "/defaults.sqlite"; }
  /// The settings for one that only looks: needs no lock and creates nothing. The error is a
  /// sentence for the user.
  std::expected<std::unique_ptr<UserDefaults>, std::string> defaultsForReading() const;
  /// The small records (usage, notes, contexts of projects) for one that only looks.
  OrchestrationStore orchestrationForReading() const;
  /// Not chosen or opened before its first use.
  std::unique_ptr<SecretStore> secretStore() const;
};

struct UserState {
  UserFolders folders;
  files::LockFile lock;
  std::unique_ptr<UserDefaults> defaults;
  /// Something that the user should know, or absent.
  std::optional<std::string> notice;

  /// Makes the folders, takes the lock, opens the settings. A settings file that is damaged is kept
  /// beside the new one, under a name with the date, and the notice says so. The error is one
  /// sentence or two for the user, saying what to do; nothing was changed then.
  static std::expected<UserState, std::string> open(UserFolders folders, Date now);
};

}  // namespace vantrell
