#include "records/values/imagine_item.h"

#include <algorithm>

#include "platform/files/files.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {
constexpr std::string_view imageExtensions[] = {"jpg", "jpeg", "png", "webp", "gif"};
constexpr std::string_view videoExtensions[] = {"mp4", "mov", "m4v", "webm"};
}  // namespace

std::string mediaExtension(std::string_view path) {
  const std::string name = files::lastComponent(path);
  const auto dot = name.rfind('.');
  // A name that begins with its only dot is hidden, and has no extension.
  return dot == name.npos || dot == 0 ? std::string() : text::lowercased(name.substr(dot + 1));
}

std::optional<ImagineKind> kindOfExtension(std::string_view extension) {
  const auto isOneOf = [extension](const auto& known) {
    return std::ranges::find(known, extension) != std::end(known);
  };
  if (isOneOf(imageExtensions)) return ImagineKind::image;
  if (isOneOf(videoExtensions)) return ImagineKind::video;
  return std::nullopt;
}

}  // namespace vantrell
