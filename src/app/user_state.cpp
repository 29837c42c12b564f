#include "app/user_state.h"

#include <filesystem>
#include <fmt/format.h>

#include "platform/storage/database.h"
#include "records/stores/conversation_file.h"
#include "records/stores/orchestration_store.h"
#include "records/values/application.h"

namespace vantrell {

namespace {

/// With the logs beside it, the file itself last: a log left alone would be played into the new
/// file. Answers the new name of the file.
files::Result<std::string> keepDefaultsAside(const std::string& path, Date now) {
  for (const char* log : {"-wal", "-shm"}) {
    const auto kept = files::quarantine(path + log, now);
    if (!kept && kept.error().code != std::errc::no_such_file_or_directory) return kept;
  }
  return files::quarantine(path, now);
}

/// A store that is whole and cannot be opened, of a newer version say: work could not be saved.
/// What is damaged is set aside when it is loaded.
std::optional<std::string> storeRefusal(const std::string& path) {
  std::error_code code;
  if (std::filesystem::file_size(path, code) == 0 || code) return std::nullopt;
  const auto look = ConversationFile::inspect(path);
  if (look.damage || look.isDoubtful) return std::nullopt;
  const auto opened = ConversationFile::open(path);
  if (opened || opened.error().kind != DatabaseError::Kind::other) return std::nullopt;
  return fmt::format("The conversations in {} could not be opened: {}. Nothing was changed.", path,
                     opened.error().text);
}

}  // namespace

UserFolders UserFolders::orOwn() const {
  return {support.empty() ? files::standardized(applicationName, files::dataFolder()) : support,
          config.empty() ? files::standardized(applicationName, files::configFolder()) : config};
}

std::expected<UserFolders, std::string> UserFolders::made() const {
  UserFolders folders = orOwn();
  for (const auto& folder : {folders.support, folders.config}) {
    if (const auto made = files::createOwnerOnlyFolder(folder); !made) {
      return std::unexpected(fmt::format(
          "Vantrell cannot keep its state: {}. Make the folder writable, or name another one with "
          "XDG_DATA_HOME and XDG_CONFIG_HOME.",
          made.error().description));
    }
  }
  return folders;
}

std::optional<pid_t> UserFolders::owner() const {
  return files::LockFile::holder(support + "/lock");
}

bool UserFolders::areInUse() const {
  return files::LockFile::isHeld(support + "/lock");
}

std::expected<std::unique_ptr<UserDefaults>, std::string> UserFolders::defaultsForReading() const {
  if (!files::exists(defaultsPath())) return UserDefaults::inMemory();
  return UserDefaults::open(defaultsPath());
}

OrchestrationStore UserFolders::orchestrationForReading() const {
  return {support, Date::current, [](const auto&) {}};
}

std::unique_ptr<SecretStore> UserFolders::secretStore() const {
  return SecretStore::chosen(support + "/secrets", {.labelPrefix = std::string(applicationName)});
}

std::expected<UserState, std::string> UserState::open(UserFolders given, Date now) {
  auto made = given.made();
  if (!made) return std::unexpected(std::move(made.error()));
  const UserFolders folders = std::move(*made);
  auto lock = files::LockFile::acquire(folders.support + "/lock");
  if (!lock) {
    if (lock.error().error) return std::unexpected(lock.error().error->description);
    const auto holder = lock.error().holder;
    return std::unexpected(fmt::format(
        "Vantrell is already running{}. Nothing was changed; use that one, or end it first.",
        holder ? fmt::format(" (process {})", *holder) : ""));
  }

  const std::string path = folders.defaultsPath();
  std::optional<std::string> notice;
  auto defaults = UserDefaults::open(path);
  if (Database::isDamaged(path)) {
    // Damage may leave all values readable and show only at a write.
    const auto readable = UserDefaults::inMemory();
    if (defaults) (void)(*defaults)->copyTo(*readable);
    const bool hadValues = defaults.has_value();
    if (defaults) defaults->reset();  // closes the file
    const auto kept = keepDefaultsAside(path, now);
    if (!kept) {
      return std::unexpected(
          fmt::format("The settings in {} are damaged, and the file could not be moved aside: {}.",
                      path, kept.error().description));
    }
    notice = fmt::format("The settings in {} {}: the file is damaged. It was kept as \"{}\"; {}.",
                         path, hadValues ? "could be read but not changed" : "could not be read",
                         *kept, hadValues ? "a new one has all its values" : "new ones begin");
    defaults = UserDefaults::open(path);
    if (defaults && !readable->copyTo(**defaults)) {
      return std::unexpected(std::string((*defaults)->lastError()));
    }
  }
  if (!defaults) return std::unexpected(std::move(defaults.error()));
  if (auto reason = storeRefusal(folders.support + "/conversations.sqlite")) {
    return std::unexpected(std::move(*reason));
  }
  return UserState{folders, std::move(*lock), std::move(*defaults), std::move(notice)};
}

}  // namespace vantrell
