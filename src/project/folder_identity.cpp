#include "project/folder_identity.h"

#include <filesystem>
#include <sys/stat.h>

#include "platform/files/files.h"
#include "project/tree_copy.h"

namespace vantrell {

namespace {

std::string withoutLinks(const std::string& folder) {
  std::error_code code;
  const auto path = std::filesystem::canonical(folder, code);
  return code ? files::standardized(folder) : path.native();
}

bool isOne(const std::string& one, const std::string& other) {
  struct stat a{};
  struct stat b{};
  if (::stat(one.c_str(), &a) != 0 || ::stat(other.c_str(), &b) != 0) return one == other;
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool isAtOrIn(const std::string& inner, const std::string& outer) {
  for (std::string folder = withoutLinks(inner);; folder = files::parent(folder)) {
    if (isOne(folder, outer)) return true;
    if (folder == "/") return false;
  }
}

}  // namespace

std::string repositoryFolder(const std::string& folder) {
  const std::string start = withoutLinks(folder);
  for (std::string each = start;; each = files::parent(each)) {
    if (isRepository(each)) return each;
    if (each == "/") return start;
  }
}

bool shareFiles(const std::string& one, const std::string& other) {
  return (isAtOrIn(one, other) || isAtOrIn(other, one)) &&
         isOne(repositoryFolder(one), repositoryFolder(other));
}

}  // namespace vantrell
