#include "platform/files/files.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <random>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "platform/files/descriptor.h"
#include "platform/files/files_system.h"

namespace vantrell::files {
namespace {

/// The kernel's own limit (MAXSYMLINKS).
constexpr int linksToFollow = 40;
constexpr mode_t permissionBits = 07777;
/// Of a file name of at most 255 bytes, the part that a temporary name repeats.
constexpr std::size_t namePartLength = 200;

/// Where a write to `path` goes: the target of a symbolic link, which need not exist. False with
/// errno.
bool followLinks(std::string& path) {
  for (int i = 0; i < linksToFollow; ++i) {
    std::error_code code;
    const std::filesystem::path target = std::filesystem::read_symlink(path, code);
    if (code) {
      // No link, or nothing there: this is the place.
      errno = code.value();
      return errno == EINVAL || errno == ENOENT;
    }
    // Relative to the link's own folder. Not standardized(): its ".." ignores folders that are
    // links themselves.
    path = (std::filesystem::path(path).parent_path() / target).native();
  }
  errno = ELOOP;
  return false;
}

/// A name in the same folder, hidden, that no other writer uses.
std::string temporaryNameFor(const std::string& path) {
  std::random_device random;
  const std::uint64_t number = static_cast<std::uint64_t>(random()) << 32 | random();
  const std::filesystem::path target(path);
  const std::string name = target.filename().native().substr(0, namePartLength);
  return (target.parent_path() / fmt::format(".{}.{:016x}.tmp", name, number)).native();
}

/// Removes the temporary file unless the write came to its end.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string path) : path_(std::move(path)) {}
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    if (!path_.empty()) unlink(path_.c_str());
  }
  const std::string& path() const { return path_; }
  void keep() { path_.clear(); }

 private:
  std::string path_;
};

/// Mode and, where allowed, owner of the new file. A program that runs as another user, as with
/// sudo, must not take a file away from its owner.
bool takeOver(int descriptor, const struct stat* old, std::optional<mode_t> mode) {
  if (old && (old->st_uid != geteuid() || old->st_gid != getegid())) {
    if (fchown(descriptor, old->st_uid, old->st_gid) != 0) {
      // Not permitted to most users: the file is theirs then.
    }
  }
  if (!mode && old) mode = old->st_mode & permissionBits;
  return !mode || fchmod(descriptor, *mode) == 0;
}

/// The system has no words for this one.
std::unexpected<FileError> notRegular(const std::string& path) {
  return std::unexpected(FileError{std::make_error_code(std::errc::invalid_argument),
                                   fmt::format("Could not read {}: Not a regular file", path)});
}

}  // namespace

bool exists(const std::string& path) {
  return !path.contains('\0') && access(path.c_str(), F_OK) == 0;
}

bool isFolder(const std::string& path) {
  struct stat info{};
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool isExecutable(const std::string& path) {
  struct stat info{};
  return stat(path.c_str(), &info) == 0 && !S_ISDIR(info.st_mode) &&
         access(path.c_str(), X_OK) == 0;
}

Result<std::string> read(const std::string& path, std::size_t most) {
  // The open of a pipe would wait for its other end, and a device may never end.
  const Descriptor descriptor(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!descriptor && errno == ENXIO)
    return notRegular(path);  // a socket, a device without a driver
  struct stat info{};
  if (!descriptor || fstat(descriptor.get(), &info) != 0) return failure("read", path);
  if (S_ISDIR(info.st_mode)) return failure("read", path, EISDIR);
  if (!S_ISREG(info.st_mode)) return notRegular(path);
  if (static_cast<std::size_t>(info.st_size) > most) return failure("read", path, EFBIG);
  std::string content;
  if (!readAll(descriptor.get(), content, most)) return failure("read", path);
  return content;
}

Result<> writeAtomically(const std::string& path, std::string_view content,
                         std::optional<mode_t> mode, Links links) {
  std::string target = path;
  if (links == Links::follow && !followLinks(target)) return failure("write", path);
  struct stat old{};
  const bool isReplacement =
      lstat(target.c_str(), &old) == 0 && !S_ISLNK(old.st_mode);  // a replaced link does not count
  if (isReplacement && S_ISDIR(old.st_mode)) return failure("write", path, EISDIR);
  // Replacing a device or a pipe by a file is never what was meant.
  if (isReplacement && !S_ISREG(old.st_mode)) return failure("write", path, EINVAL);

  // A new file gets its mode from the kernel, which knows the umask; all others start private.
  const mode_t firstMode = isReplacement || mode ? 0600 : 0666;
  TemporaryFile temporary(temporaryNameFor(target));
  Descriptor descriptor(open(temporary.path().c_str(),
                             O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, firstMode));
  if (!descriptor) {
    const int code = errno;
    temporary.keep();  // it is not there, or not ours
    return failure("write", path, code);
  }
  if (!writeAll(descriptor.get(), content) ||
      !takeOver(descriptor.get(), isReplacement ? &old : nullptr, mode) ||
      fsync(descriptor.get()) != 0 || !descriptor.close() ||
      rename(temporary.path().c_str(), target.c_str()) != 0) {
    return failure("write", path);
  }
  temporary.keep();
  if (!syncFolderOf(target)) return failure("make durable", path);
  return {};
}

Result<> createFolders(const std::string& path, mode_t mode) {
  const std::string absolute = standardized(path);
  for (std::size_t slash = 0; slash != absolute.npos;) {
    slash = absolute.find('/', slash + 1);
    const std::string folder = absolute.substr(0, slash);
    if (isFolder(folder)) continue;
    if (mkdir(folder.c_str(), mode) == 0) {
      // Else a power cut could take the folder, with all that is made durable in it.
      (void)syncFolderOf(folder);
      continue;
    }
    const int code = errno;
    if (code == EEXIST && isFolder(folder)) continue;  // someone else was faster
    return failure("create the folder", folder, code == EEXIST ? ENOTDIR : code);
  }
  return {};
}

Result<> createOwnerOnlyFolder(const std::string& path) {
  if (auto created = createFolders(path, 0700); !created) return created;
  struct stat info{};
  const bool isOwnerOnly = stat(path.c_str(), &info) == 0 && (info.st_mode & 07777) == 0700;
  if (!isOwnerOnly && chmod(path.c_str(), 0700) != 0) {
    return failure("make owner-only the folder", path);
  }
  return {};
}

Result<> remove(const std::string& path) {
  if (::remove(path.c_str()) != 0) return failure("remove", path);
  return {};
}

Result<> removeTree(const std::string& path) {
  std::error_code code;
  if (std::filesystem::remove_all(path, code) == 0 && !code) return failure("remove", path, ENOENT);
  if (code) return failure("remove", path, code.value());
  return {};
}

}  // namespace vantrell::files
