// The freedesktop.org Trash specification, version 1.0: a trash folder holds files/ with what was
// deleted and info/ with a text file for each that says whence and when.
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files/descriptor.h"
#include "platform/files/files.h"
#include "platform/files/files_system.h"
#include "platform/text/utf8.h"
#include "platform/values/url.h"

namespace vantrell::files {
namespace {

/// Leaves room for ".trashinfo" and a number within the 255 bytes of a file name.
constexpr std::size_t longestName = 220;
/// Namesakes in the trash before giving up.
constexpr int namesToTry = 10'000;

struct TrashFolder {
  std::string path;
  std::string topFolder;  // of its volume; empty for the home trash, which keeps absolute paths
};

std::optional<dev_t> deviceOf(const std::string& path) {
  struct stat info{};
  return lstat(path.c_str(), &info) == 0 ? std::optional(info.st_dev) : std::nullopt;
}

/// The folder at which the volume of `folder` is mounted.
std::string topFolderOf(std::string folder) {
  const auto device = deviceOf(folder);
  while (folder != "/" && deviceOf(parent(folder)) == device) folder = parent(folder);
  return folder;
}

/// Makes sure that `path` is a folder of this user alone and no link to elsewhere.
bool isOwnFolder(const std::string& path) {
  if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) return false;
  struct stat info{};
  if (lstat(path.c_str(), &info) != 0) return false;
  if (S_ISDIR(info.st_mode) && info.st_uid == geteuid()) return true;
  errno = EACCES;
  return false;
}

/// On a volume other than that of the home folder: the user's folder in $topdir/.Trash where an
/// administrator made that (sticky, and no link, lest other users redirect it), else
/// $topdir/.Trash-$uid.
Result<TrashFolder> volumeTrash(const std::string& path) {
  const std::string top = topFolderOf(parent(path));
  const std::string prefix = top == "/" ? "" : top;
  const std::string shared = prefix + "/.Trash";
  const std::string user = std::to_string(geteuid());
  struct stat info{};
  if (lstat(shared.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && (info.st_mode & S_ISVTX) &&
      isOwnFolder(shared + "/" + user)) {
    return TrashFolder{shared + "/" + user, top};
  }
  const std::string own = prefix + "/.Trash-" + user;
  if (!isOwnFolder(own)) return failure("use the trash folder", own);
  return TrashFolder{own, top};
}

std::string infoFor(const std::string& path, const TrashFolder& trash) {
  std::string_view recorded = path;
  if (!trash.topFolder.empty()) {
    recorded.remove_prefix(trash.topFolder == "/" ? 1 : trash.topFolder.size() + 1);
  }
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char date[32];
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
  return fmt::format("[Trash Info]\nPath={}\nDeletionDate={}\n", percentEncoded(recorded, "-_.~/"),
                     date);
}

/// "report.txt", "report.2.txt", "report.3.txt" and so on.
std::string numbered(const std::string& name, int number) {
  if (number == 1) return name;
  const std::size_t dot = name.rfind('.');
  const std::size_t stem = dot == name.npos || dot == 0 ? name.size() : dot;
  return fmt::format("{}.{}{}", name.substr(0, stem), number, name.substr(stem));
}

/// The name cut to what the trash can hold, not inside a character.
std::string shortened(std::string name) {
  if (name.size() <= longestName) return name;
  std::size_t length = longestName;
  while (length > 0 && utf8::isContinuation(name[length])) --length;
  name.resize(length);
  return name;
}

/// Reserves a name by its info file, as all users of the trash do, then moves. False with errno.
bool moveInto(const TrashFolder& trash, const std::string& path, std::string& movedTo) {
  const std::string filesFolder = trash.path + "/files";
  const std::string infoFolder = trash.path + "/info";
  if (!isOwnFolder(filesFolder) || !isOwnFolder(infoFolder)) return false;
  const std::string name = shortened(lastComponent(path));
  const std::string content = infoFor(path, trash);
  for (int number = 1; number <= namesToTry; ++number) {
    const std::string candidate = numbered(name, number);
    const std::string infoPath = fmt::format("{}/{}.trashinfo", infoFolder, candidate);
    Descriptor info(open(infoPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!info) {
      if (errno == EEXIST) continue;
      return false;
    }
    movedTo = fmt::format("{}/{}", filesFolder, candidate);
    if (writeAll(info.get(), content) && info.close() && renameToFreeName(path, movedTo)) {
      return true;
    }
    const int code = errno;
    unlink(infoPath.c_str());
    errno = code;
    if (errno != EEXIST) return false;
  }
  errno = EEXIST;
  return false;
}

}  // namespace

Result<std::string> moveToTrash(const std::string& path) {
  constexpr std::string_view action = "move to the Trash";
  const std::string given = standardized(path);
  // The folder decides on the volume, with its links resolved; a link or a mounted folder in it is
  // an entry of that volume and moves as such.
  std::error_code code;
  const std::string folder = std::filesystem::canonical(parent(given), code).native();
  if (code) return failure(action, given, code.value());
  const std::string absolute = standardized(lastComponent(given), folder);
  if (!deviceOf(absolute)) return failure(action, absolute);

  std::string movedTo;
  const std::string homeTrash = dataFolder() + "/Trash";
  if (createFolders(homeTrash, 0700) && deviceOf(homeTrash) == deviceOf(folder)) {
    if (moveInto({homeTrash, ""}, absolute, movedTo)) return movedTo;
    // One device can be mounted twice, and then rename does not reach from one to the other.
    if (errno != EXDEV) return failure(action, absolute);
  }
  const auto trash = volumeTrash(absolute);
  if (!trash) return std::unexpected(trash.error());
  if (moveInto(*trash, absolute, movedTo)) return movedTo;
  return failure(action,
                 absolute);  // never copied: what can be moved back must be the thing itself
}

}  // namespace vantrell::files
