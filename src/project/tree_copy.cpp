#include "project/tree_copy.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "platform/files/descriptor.h"
#include "platform/files/files.h"
#include "platform/values/uuid.h"

namespace vantrell {

namespace {

constexpr mode_t permissionBits = 07777;
constexpr mode_t ownerOnly = 0700;
constexpr std::string_view ownPrefix = "vantrell-safety-";
constexpr std::string_view lockSuffix = ".lock";

std::unexpected<TaskSafetyError> failure(std::string_view action, std::string_view path,
                                         int code = errno) {
  return std::unexpected(TaskSafetyError::filesFailed(action, path, code));
}

/// Sharing blocks where the file system can, else copying. False with errno.
bool copyBytes(int source, int target, const WorkBudget& budget) {
  constexpr std::size_t step = std::size_t{8} << 20;  // bytes between two looks at the clock
  bool canShare = true;
  std::string buffer;
  while (true) {
    if (budget.isOutOfTime()) {
      errno = ETIME;
      return false;
    }
    if (canShare) {
      const ssize_t count = copy_file_range(source, nullptr, target, nullptr, step, 0);
      if (count > 0) continue;
      if (count < 0 && errno == EINTR) continue;
      // An answer of nothing is either the end or a file system that cannot: reading tells which.
      canShare = false;
    }
    buffer.resize(std::size_t{256} << 10);
    const ssize_t count = ::read(source, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return count == 0;
    std::string_view rest(buffer.data(), static_cast<std::size_t>(count));
    while (!rest.empty()) {
      const ssize_t written = ::write(target, rest.data(), rest.size());
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) return false;
      rest.remove_prefix(static_cast<std::size_t>(written));
    }
  }
}

TaskSafetyResult<> copyFile(const std::string& source, const std::string& target,
                            WorkBudget& budget) {
  // Not waiting for the other end of a pipe that has just taken the file's place.
  const Descriptor from(
      ::open(source.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat info{};
  if (!from || ::fstat(from.get(), &info) != 0) {
    if (errno == ENOENT) return {};
    return failure("read", source);
  }
  if (!S_ISREG(info.st_mode)) return {};
  const auto size = static_cast<std::uint64_t>(info.st_size);
  if (budget.bytes && *budget.bytes < size) {
    return std::unexpected(TaskSafetyError::filesFailed("The files to be copied are too large."));
  }
  if (budget.bytes) *budget.bytes -= size;
  Descriptor to(::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!to) return failure("create", target);
  const std::array times{info.st_atim, info.st_mtim};
  if (!copyBytes(from.get(), to.get(), budget) ||
      ::fchmod(to.get(), info.st_mode & permissionBits) != 0 ||
      ::futimens(to.get(), times.data()) != 0 || ::close(to.release()) != 0) {
    const int code = errno;
    ::unlink(target.c_str());
    return failure("copy", source, code);
  }
  return {};
}

TaskSafetyResult<> copyLink(const std::string& source, const std::string& target) {
  std::error_code code;
  const auto destination = std::filesystem::read_symlink(source, code);
  if (code == std::errc::no_such_file_or_directory) return {};
  if (code) return failure("read", source, code.value());
  if (::symlink(destination.c_str(), target.c_str()) != 0) return failure("create", target);
  return {};
}

TaskSafetyResult<> copyFolder(const std::string& source, const std::string& target, mode_t mode,
                              WorkBudget& budget) {
  if (::mkdir(target.c_str(), ownerOnly) != 0) return failure("create the folder", target);
  std::error_code code;
  for (std::filesystem::directory_iterator entry(source, code), end; !code && entry != end;
       entry.increment(code)) {
    const std::string name = entry->path().filename().native();
    auto copied = copyItem(source + "/" + name, target + "/" + name, budget);
    if (!copied) return copied;
  }
  if (code) return failure("read the folder", source, code.value());
  // Last: a folder may be read-only.
  if (::chmod(target.c_str(), mode & permissionBits) != 0) return failure("change", target);
  return {};
}

}  // namespace

std::optional<std::chrono::milliseconds> WorkBudget::timeLeft() const {
  if (!deadline) return std::nullopt;
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      *deadline - std::chrono::steady_clock::now());
  return std::max(left, std::chrono::milliseconds::zero());
}

bool WorkBudget::isOutOfTime() const {
  return deadline && std::chrono::steady_clock::now() >= *deadline;
}

OwnFolder::OwnFolder(const In& in)
    : path_(fmt::format("{}/{}{}", in.parent, ownPrefix, Uuid::random().text())) {
  sweep(in.parent);
  if (auto lock = files::LockFile::acquire(path_ + lockSuffix.data())) lock_ = *std::move(lock);
}

OwnFolder::OwnFolder() : OwnFolder(In{files::temporaryFolder()}) {}

OwnFolder::~OwnFolder() {
  if (isKept_) return;
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
  if (lock_) ::unlink((path_ + lockSuffix.data()).c_str());
}

void OwnFolder::sweep(const std::string& parent,
                      const std::function<void(const std::string& leftover)>& first) {
  std::error_code code;
  std::vector<std::string> locks;
  for (std::filesystem::directory_iterator entry(parent, code), end; !code && entry != end;
       entry.increment(code)) {
    const std::string name = entry->path().filename().native();
    if (name.starts_with(ownPrefix) && name.ends_with(lockSuffix)) locks.push_back(entry->path());
  }
  for (const auto& each : locks) {
    struct stat info{};
    if (::lstat(each.c_str(), &info) != 0 || info.st_uid != ::geteuid()) continue;
    const auto lock = files::LockFile::acquire(each);
    if (!lock) continue;
    const std::string folder = each.substr(0, each.size() - lockSuffix.size());
    if (first) first(folder);
    std::filesystem::remove_all(folder, code);
    ::unlink(each.c_str());
  }
}

TaskSafetyResult<> secureDirectory(const std::string& path) {
  const auto made = files::createOwnerOnlyFolder(path);
  if (!made) return std::unexpected(TaskSafetyError::filesFailed(made.error().description));
  return {};
}

std::optional<std::string> pathInside(std::string_view root, std::string_view relative) {
  const std::string ground = files::standardized(root);
  std::string path = files::standardized(fmt::format("{}/{}", ground, relative));
  // The root of the file system ends with the slash already.
  if (!path.starts_with(ground == "/" ? ground : ground + "/")) return std::nullopt;
  return path;
}

bool standsAt(const std::string& path) {
  struct stat info{};
  return ::lstat(path.c_str(), &info) == 0;
}

bool isRealFolder(const std::string& path) {
  struct stat info{};
  return ::lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool isRepository(const std::string& folder) {
  return standsAt(folder + "/.git");
}

bool isBelowFile(const std::string& root, const std::string& path) {
  for (auto slash = path.find('/'); slash != path.npos; slash = path.find('/', slash + 1)) {
    struct stat info{};
    if (::lstat(fmt::format("{}/{}", root, path.substr(0, slash)).c_str(), &info) != 0)
      return false;
    if (!S_ISDIR(info.st_mode)) return true;
  }
  return false;
}

TaskSafetyResult<> makeParents(const std::string& root, std::string_view relative,
                               std::string_view like) {
  for (auto slash = relative.find('/'); slash != relative.npos;
       slash = relative.find('/', slash + 1)) {
    const std::string_view part = relative.substr(0, slash);
    const std::string folder = fmt::format("{}/{}", root, part);
    struct stat info{};
    if (::lstat(folder.c_str(), &info) == 0) {
      if (S_ISDIR(info.st_mode)) continue;
      return failure("create the folder", folder, ENOTDIR);
    }
    const bool hasModel = !like.empty() &&
                          ::lstat(fmt::format("{}/{}", like, part).c_str(), &info) == 0 &&
                          S_ISDIR(info.st_mode);
    // Closed to others from the first moment, where they may not look into it.
    if (::mkdir(folder.c_str(), hasModel ? ownerOnly : 0777) != 0) {
      if (errno == EEXIST) continue;
      return failure("create the folder", folder);
    }
    if (hasModel && ::chmod(folder.c_str(), (info.st_mode & permissionBits) | ownerOnly) != 0) {
      return failure("change", folder);
    }
  }
  return {};
}

TaskSafetyResult<> copyItem(const std::string& source, const std::string& target,
                            WorkBudget& budget) {
  struct stat info{};
  if (::lstat(source.c_str(), &info) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) return {};
    return failure("read", source);
  }
  if (budget.isOutOfTime()) return failure("copy", source, ETIME);  // "Timer expired"
  if (budget.files) {
    if (*budget.files == 0) {
      return std::unexpected(TaskSafetyError::filesFailed("There are too many untracked files."));
    }
    --*budget.files;
  }
  if (S_ISLNK(info.st_mode)) return copyLink(source, target);
  if (S_ISDIR(info.st_mode)) return copyFolder(source, target, info.st_mode, budget);
  if (S_ISREG(info.st_mode)) return copyFile(source, target, budget);
  return {};
}

}  // namespace vantrell
