#include "views/attachments.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "platform/text/visible_text.h"

namespace vantrell::views {

namespace {

struct PictureType {
  std::string_view extension, contentType;
};
constexpr PictureType pictureTypes[] = {
    {".avif", "image/avif"}, {".bmp", "image/bmp"},   {".gif", "image/gif"},
    {".heic", "image/heic"}, {".heif", "image/heif"}, {".jpeg", "image/jpeg"},
    {".jpg", "image/jpeg"},  {".png", "image/png"},   {".tif", "image/tiff"},
    {".tiff", "image/tiff"}, {".webp", "image/webp"},
};

}  // namespace

std::optional<std::string_view> pictureTypeOf(std::string_view path) {
  const auto extension = text::lowercased(std::filesystem::path(path).extension().string());
  const auto type = std::ranges::find(pictureTypes, extension, &PictureType::extension);
  if (type == std::end(pictureTypes)) return std::nullopt;
  return type->contentType;
}

std::expected<ChatAttachment, std::string> attachmentFor(std::string path) {
  ChatAttachment attachment;
  attachment.id = Uuid::random();
  attachment.path = std::move(path);
  attachment.displayName = files::lastComponent(attachment.path);
  if (!files::exists(attachment.path)) {
    return std::unexpected(fmt::format("There is no file {}.", text::onOneLine(attachment.path)));
  }
  if (files::isFolder(attachment.path)) {
    attachment.kind = ChatAttachmentKind::directory;
    return attachment;
  }
  if (const auto type = pictureTypeOf(attachment.displayName)) {
    attachment.kind = ChatAttachmentKind::image;
    attachment.contentType = *type;
  }
  std::error_code unknown;
  const auto size = std::filesystem::file_size(attachment.path, unknown);
  if (!unknown) attachment.byteCount = static_cast<std::int64_t>(size);
  return attachment;
}

}  // namespace vantrell::views
