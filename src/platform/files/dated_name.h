// Names of quarantined files: what, and when. Looks at the disk for a name that is free; the caller
// must still not replace anything. Any thread.
#pragma once

#include <string>
#include <string_view>

#include "platform/values/date.h"

namespace vantrell::files {

/// "FOLDER/what 2026-11-22 21.08.00Z.json", with a number where that is taken. The extension has
/// its dot.
std::string datedName(const std::string& folder, std::string_view what, Date date,
                      std::string_view extension);

}  // namespace vantrell::files
