#include "records/stores/imagine_directory.h"

namespace vantrell {

namespace {

std::string target(const std::string& supportFolder) {
  return files::standardized("Imagine", supportFolder);
}

std::string earlierPlace(const std::string& supportFolder) {
  return files::standardized("Larkmoor/Imagine", files::parent(files::standardized(supportFolder)));
}

}  // namespace

files::Result<std::string> imagineDirectory(const std::string& supportFolder) {
  std::string folder = target(supportFolder);
  const std::string earlier = earlierPlace(supportFolder);
  if (!files::exists(folder) && files::exists(earlier)) {
    if (auto made = files::createFolders(supportFolder, 0700); !made) {
      return std::unexpected(made.error());
    }
    if (auto moved = files::move(earlier, folder); !moved) {
      return std::unexpected(moved.error());
    }
  }
  if (auto made = files::createFolders(folder, 0700); !made) return std::unexpected(made.error());
  return folder;
}

std::optional<std::string> existingImagineDirectory(const std::string& supportFolder) {
  for (const auto& folder : {target(supportFolder), earlierPlace(supportFolder)}) {
    if (files::exists(folder)) return folder;
  }
  return std::nullopt;
}

}  // namespace vantrell
