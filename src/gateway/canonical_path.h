// Folders by one name each, so that a site key's projects cannot be left through a link.
#pragma once

#include <string>

namespace vantrell {

/// Absolute, without ".", ".." and links, as far as the path exists. Asks the file system; any
/// thread.
std::string canonicalPath(const std::string& path);

}  // namespace vantrell
