#include "platform/files/files_system.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files/descriptor.h"

namespace vantrell::files {

std::unexpected<FileError> failure(std::string_view action, std::string_view path) {
  return failure(action, path, errno);
}

std::unexpected<FileError> failure(std::string_view action, std::string_view path, int code) {
  const std::error_code error(code, std::generic_category());
  return std::unexpected(
      FileError{error, fmt::format("Could not {} {}: {}", action, path, error.message())});
}

bool syncFolderOf(const std::string& path) {
  const std::string folder = std::filesystem::path(path).parent_path().native();
  const Descriptor descriptor(
      open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!descriptor) return errno == EACCES;
  return fsync(descriptor.get()) == 0 || errno == EINVAL || errno == ENOTSUP;
}

bool renameToFreeName(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  // Some network file systems lack the flag; only another program of the same user could come
  // between. EINVAL also says that `to` is inside `from`, which the plain call says again.
  struct stat info{};
  if (lstat(to.c_str(), &info) == 0) {
    errno = EEXIST;
    return false;
  }
  return rename(from.c_str(), to.c_str()) == 0;
}

bool writeAll(int descriptor, std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = ::write(descriptor, content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    content.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool readAll(int descriptor, std::string& content, std::size_t most) {
  constexpr std::size_t step = std::size_t{64} * 1024;
  struct stat info{};
  const bool hasSize = fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode);
  // One byte more than the size, so that the end is seen without growing.
  std::size_t room = hasSize ? static_cast<std::size_t>(info.st_size) + 1 : step;
  while (true) {
    const std::size_t filled = content.size();
    if (filled > most) {
      errno = EFBIG;
      return false;
    }
    if (most - filled < room) room = most - filled + 1;  // the one too many is seen
    content.resize(filled + room);
    const ssize_t count = ::read(descriptor, content.data() + filled, room);
    content.resize(filled + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return count == 0;
    room = std::max(step, room - static_cast<std::size_t>(count));
  }
}

}  // namespace vantrell::files
