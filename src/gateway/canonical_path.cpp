#include "gateway/canonical_path.h"

#include <filesystem>

#include "platform/files/files.h"

namespace vantrell {

std::string canonicalPath(const std::string& path) {
  // What an earlier part of the path links to decides where ".." leads, so links come first.
  std::error_code code;
  const auto resolved = std::filesystem::weakly_canonical(path, code);
  return files::standardized(code ? path : resolved.native());
}

}  // namespace vantrell
