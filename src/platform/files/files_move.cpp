#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <stdio.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files/dated_name.h"
#include "platform/files/descriptor.h"
#include "platform/files/files.h"
#include "platform/files/files_system.h"

namespace vantrell::files {
namespace {

/// To the end that the file has when it is reached: it may grow and shrink meanwhile. False with
/// errno.
bool copyContent(int from, int to, const std::stop_token& stop) {
  constexpr std::size_t step = 16 << 20;  // bytes between two looks at `stop`
  // Costs no room where the file system can share blocks; some cannot, or return 0.
  bool sharesBlocks = true;
  while (!stop.stop_requested()) {
    ssize_t count = sharesBlocks ? copy_file_range(from, nullptr, to, nullptr, step, 0) : 0;
    if (count <= 0 && sharesBlocks) sharesBlocks = false;
    if (count <= 0) count = sendfile(to, from, nullptr, step);
    if (count == 0) return true;
    if (count < 0 && errno != EINTR) return false;
  }
  errno = ECANCELED;
  return false;
}

/// A free name in the same folder and with the same extension.
std::string asideName(const std::string& path, Date date) {
  const std::string name = lastComponent(path);
  std::size_t dot = name.rfind('.');
  if (dot == 0) dot = name.npos;
  return datedName(parent(path), name.substr(0, dot) + " that could not be read", date,
                   dot == name.npos ? "" : name.substr(dot));
}

}  // namespace

Result<std::string> quarantine(const std::string& path, Date date) {
  std::string aside = asideName(path, date);
  if (!renameToFreeName(path, aside)) return failure("move away", path);
  if (!syncFolderOf(aside)) return failure("make durable", aside);
  return aside;
}

Result<> exchange(const std::string& one, const std::string& other) {
  if (renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE) != 0) {
    return failure("exchange", one);
  }
  // Whichever of the two names a power loss leaves, it is whole.
  static_cast<void>(syncFolderOf(one) && syncFolderOf(other));
  return {};
}

Result<> move(const std::string& from, const std::string& to) {
  if (renameToFreeName(from, to)) {
    if (!syncFolderOf(to) || !syncFolderOf(from)) return failure("make durable", to);
    return {};
  }
  if (errno != EXDEV) return failure("move", from);
  // Under a name of its own until it is whole, so that half a copy is never taken for the folder.
  const std::string copy = fmt::format("{}.moving", to);
  std::error_code code;
  std::filesystem::remove_all(copy, code);
  using std::filesystem::copy_options;
  std::filesystem::copy(from, copy, copy_options::recursive | copy_options::copy_symlinks, code);
  // The old one goes for good, so all of the new one must be on the disk first.
  if (!code) {
    const Descriptor volume(open(copy.c_str(), O_RDONLY | O_CLOEXEC));
    if (!volume || syncfs(volume.get()) != 0) code = {errno, std::generic_category()};
  }
  if (!code && !renameToFreeName(copy, to)) code = {errno, std::generic_category()};
  if (code) {
    std::error_code ignored;
    std::filesystem::remove_all(copy, ignored);
    return failure("move", from, code.value());
  }
  if (!syncFolderOf(to)) return failure("make durable", to);
  return removeTree(from);
}

Result<> copyFile(const std::string& from, const std::string& to, const std::stop_token& stop) {
  // The open of a pipe would wait for its other end.
  const Descriptor source(open(from.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat info{};
  if (!source || fstat(source.get(), &info) != 0) return failure("copy", from);
  if (!S_ISREG(info.st_mode)) return failure("copy", from, EINVAL);
  Descriptor copy(open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!copy) return failure("copy", from);
  const bool isWhole = copyContent(source.get(), copy.get(), stop) &&
                       fchmod(copy.get(), info.st_mode & 07777) == 0 && fsync(copy.get()) == 0 &&
                       copy.close() && syncFolderOf(to);
  if (isWhole) return {};
  const int code = errno;
  unlink(to.c_str());
  return failure("copy", from, code);
}

}  // namespace vantrell::files
