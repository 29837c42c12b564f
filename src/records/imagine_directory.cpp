#include "records/imagine_directory.h"

namespace vantrell {

files::Result<std::string> imagineDirectory(const std::string& supportFolder) {
  std::string target = files::standardized("Imagine", supportFolder);
  const std::string earlier =
      files::standardized("Larkmoor/Imagine", files::parent(files::standardized(supportFolder)));
  if (!files::exists(target) && files::exists(earlier)) {
    if (auto made = files::createFolders(supportFolder, 0700); !made) {
      return std::unexpected(made.error());
    }
    if (auto moved = files::move(earlier, target); !moved) {
      return std::unexpected(moved.error());
    }
  }
  if (auto made = files::createFolders(target, 0700); !made) return std::unexpected(made.error());
  return target;
}

}  // namespace vantrell
