// Tells a settings file that is beyond reading from one that only cannot be opened now. Blocks; any
// thread.
#pragma once

#include <string>

namespace vantrell {

/// True when the file holds no database, or one that is damaged. False when it is in use, of a
/// newer version, not accessible or missing: those can be put right.
bool isDamagedSettingsFile(const std::string& path);

}  // namespace vantrell
