#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <fstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "platform/files/descriptor.h"
#include "platform/files/files.h"
#include "platform/files/files_system.h"

namespace vantrell::files {
namespace {

/// Whether the path still names the file that is open.
bool stillNamed(int descriptor, const std::string& path) {
  struct stat open{};
  struct stat named{};
  return fstat(descriptor, &open) == 0 && stat(path.c_str(), &named) == 0 &&
         open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

std::optional<pid_t> holderNamedIn(int descriptor) {
  std::string content;
  pid_t holder = 0;
  if (!readAll(descriptor, content)) return std::nullopt;
  const auto result = std::from_chars(content.data(), content.data() + content.size(), holder);
  return result.ec == std::errc() && holder > 0 ? std::optional(holder) : std::nullopt;
}

LockFile::Busy cannotLock(const std::string& path) {
  return {std::nullopt, failure("lock", path).error()};
}

}  // namespace

// flock() and not a POSIX record lock: those are lost when any other part of the process closes
// the file. The lock belongs to the open file, which ends with the process; children do not get it
// because the descriptor is close-on-exec.
std::expected<LockFile, LockFile::Busy> LockFile::acquire(const std::string& path) {
  while (true) {
    // A pipe at the path is an error, and not something to wait for.
    Descriptor descriptor(open(path.c_str(), O_RDWR | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0600));
    if (!descriptor) return std::unexpected(cannotLock(path));
    if (flock(descriptor.get(), LOCK_EX | LOCK_NB) != 0) {
      if (errno == EINTR) continue;
      if (errno != EWOULDBLOCK) return std::unexpected(cannotLock(path));
      return std::unexpected(Busy{holderNamedIn(descriptor.get()), std::nullopt});
    }
    // Someone removed the file between the two calls: a lock on it would exclude no process.
    if (!stillNamed(descriptor.get(), path)) continue;
    const std::string holder = std::to_string(getpid()) + "\n";
    if (fchmod(descriptor.get(), 0600) != 0 || ftruncate(descriptor.get(), 0) != 0 ||
        !writeAll(descriptor.get(), holder)) {
      return std::unexpected(cannotLock(path));
    }
    // The file stays behind: removing it would let two processes lock two files of one name.
    return LockFile(std::move(descriptor));
  }
}

std::optional<pid_t> LockFile::holder(const std::string& path) {
  if (!isHeld(path)) return std::nullopt;
  const Descriptor descriptor(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  return descriptor ? holderNamedIn(descriptor.get()) : std::nullopt;
}

// The kernel lists each lock as "1: FLOCK  ADVISORY  WRITE 4711 fd:01:393237 0 EOF": the last
// number of the triple is the inode. The device is left out, since some file systems list another
// one.
bool LockFile::isHeld(const std::string& path) {
  struct stat named{};
  if (stat(path.c_str(), &named) != 0) return false;
  std::ifstream locks("/proc/locks");
  const std::string inode = ":" + std::to_string(named.st_ino) + " ";
  for (std::string line; std::getline(locks, line);) {
    if (line.find("FLOCK") != std::string::npos && line.find(inode) != std::string::npos)
      return true;
  }
  return false;
}

}  // namespace vantrell::files
