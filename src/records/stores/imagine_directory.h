// Where generated pictures and films lie. Blocks for a moment; any thread.
#pragma once

#include <optional>
#include <string>

#include "platform/files/files.h"

namespace vantrell {

/// "Imagine" in the program's own data folder, made when it is missing. Where there is none yet but
/// the program's earlier name ("Larkmoor", beside the support folder) has one, that is moved here
/// first. After a failure the earlier folder is whole, where it was.
files::Result<std::string> imagineDirectory(const std::string& supportFolder);

/// The same as it lies there now, under the earlier name if that is so; nothing is made or moved.
std::optional<std::string> existingImagineDirectory(const std::string& supportFolder);

}  // namespace vantrell
