// What the parts of files.h share: descriptors that close themselves and the system's errors in
// words. Any thread.
#pragma once

#include <string>
#include <string_view>

#include "platform/files/files.h"

namespace vantrell::files {

/// A file descriptor, closed at the end of its life.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { close(); }

  int number() const { return number_; }
  explicit operator bool() const { return number_ >= 0; }
  /// False, with errno, when the system reports a late write error.
  bool close();
  /// Gives the number up without closing it.
  int release();

 private:
  int number_;
};

/// "Could not write /x/y: No space left on device". The code defaults to errno.
std::unexpected<FileError> failure(std::string_view action, std::string_view path);
std::unexpected<FileError> failure(std::string_view action, std::string_view path, int code);

/// Writes all of it. False with errno.
bool writeAll(int descriptor, std::string_view content);
/// Makes a new name in the folder of `path` survive a power loss. False with errno; a folder that
/// may be written but not read cannot be synced, and some file systems do not know how: neither is
/// a failure.
bool syncFolderOf(const std::string& path);
/// Reads to the end and appends. False with errno.
bool readAll(int descriptor, std::string& content,
             std::size_t most = std::numeric_limits<std::size_t>::max());

}  // namespace vantrell::files
