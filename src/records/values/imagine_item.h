// One picture or film of the media library. A plain value.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/values/date.h"
#include "platform/values/uuid.h"
#include "records/values/raw_text.h"

namespace vantrell {

enum class ImagineKind { image, video };
constexpr auto rawTexts(ImagineKind) {
  return std::to_array<std::string_view>({"image", "video"});
}

struct ImagineItem {
  Uuid id;
  ImagineKind kind = ImagineKind::image;  // of the file, whatever was asked for
  std::string prompt;
  std::string localPath;  // of the copy in the library
  std::string fileName;   // last component of that path
  Date createdAt;         // when the copy was made

  bool operator==(const ImagineItem&) const = default;
};

/// Behind the last dot of a path's last component, in lower case; empty when there is none.
std::string mediaExtension(std::string_view path);
/// What a file with this extension (in lower case) is; absent when it is no medium.
std::optional<ImagineKind> kindOfExtension(std::string_view extension);

}  // namespace vantrell
