// What went wrong with a file.
#pragma once

#include <expected>
#include <string>
#include <system_error>

namespace vantrell::files {

/// What the system said, with the path: "Could not write /x/y: No space left on device".
struct FileError {
  std::error_code code;
  std::string description;
};
template <typename T = void>
using Result = std::expected<T, FileError>;

}  // namespace vantrell::files
