// How the program names itself.
#pragma once

#include <string_view>

namespace vantrell {

inline constexpr std::string_view applicationName = "vantrell";
/// The version of the build, from the project file.
inline constexpr std::string_view applicationVersion = VANTRELL_VERSION;

}  // namespace vantrell
