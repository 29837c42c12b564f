// Finds the paths of pictures and films that an agent names anywhere in what it reports: that is
// how it tells where its results are. Pure; any thread; linear in the size of the update, since
// whole pictures come in updates too.
#pragma once

#include <set>
#include <string>
#include <string_view>

#include "platform/values/json.h"

namespace vantrell {

class ImagineMediaExtractor {
 public:
  /// In every text of the update, at any depth, and in JSON that is held as a text. Keys do not
  /// count. In a text a path begins at a slash, ends with the first extension of a medium in any
  /// case of letters, and holds no line end and no quotation mark: what
  /// /(?:[^\n\r"']+?)\.(?:jpe?g|png|webp|gif|mp4|mov|m4v|webm)
  /// matches.
  static std::set<std::string> paths(const JsonObject& update);

  /// No path goes on behind one of these.
  static constexpr std::string_view endsOfPaths = "\n\r\"'";
};

}  // namespace vantrell
