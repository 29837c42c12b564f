// How the program names itself.
#pragma once

#include <string_view>

namespace vantrell {

inline constexpr std::string_view applicationName = "vantrell";
/// The version of the build, from the project file. One text in the program, so that the tests of
/// updates can make the next version of it.
extern const std::string_view applicationVersion;

}  // namespace vantrell
