// System calls with their errors in words, shared by the functions of files.h. Any thread.
#pragma once

#include <cstddef>
#include <expected>
#include <limits>
#include <string>
#include <string_view>

#include "platform/files/file_error.h"

namespace vantrell::files {

/// "Could not write /x/y: No space left on device". The code defaults to errno.
std::unexpected<FileError> failure(std::string_view action, std::string_view path);
std::unexpected<FileError> failure(std::string_view action, std::string_view path, int code);

/// Writes all of it. False with errno.
bool writeAll(int descriptor, std::string_view content);
/// Makes a new name in the folder of `path` survive a power loss. False with errno; a folder that
/// may be written but not read cannot be synced, and some file systems do not know how: neither is
/// a failure.
bool syncFolderOf(const std::string& path);
/// A rename that never replaces anything. False with errno; EEXIST when the name is taken.
bool renameToFreeName(const std::string& from, const std::string& to);
/// Reads to the end and appends. False with errno.
bool readAll(int descriptor, std::string& content,
             std::size_t most = std::numeric_limits<std::size_t>::max());

}  // namespace vantrell::files
