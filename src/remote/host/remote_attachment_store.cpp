#include "remote/host/remote_attachment_store.h"

#include <algorithm>
#include <filesystem>

#include "platform/crypto/crypto.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "platform/values/uuid.h"

namespace vantrell {

namespace {

constexpr std::string_view folder = ".vantrell/attachments";
/// What file systems take, without the prefix that a name gets.
constexpr std::size_t longestNameBytes = 240;

}  // namespace

std::string_view RemoteAttachmentStore::description(StoreError error) {
  switch (error) {
    case StoreError::invalidUpload: return "The attachment upload metadata is invalid.";
    case StoreError::invalidChunk: return "An attachment chunk could not be decoded.";
    case StoreError::fileTooLarge: break;
  }
  return "Remote attachments are limited to 20 MB each.";
}

std::string RemoteAttachmentStore::safeName(std::string_view fileName) {
  while (fileName.ends_with('/')) fileName.remove_suffix(1);
  if (const auto slash = fileName.rfind('/'); slash != std::string_view::npos) {
    fileName.remove_prefix(slash + 1);
  }
  static const auto unsafe = text::Pattern::compile("[^\\p{L}\\p{M}\\p{N}\\-_. ]");
  std::string replaced;
  std::size_t end = 0;
  for (const auto& match : unsafe->findAll(fileName)) {
    replaced.append(fileName.substr(end, match.offset - end)).append("_");
    end = match.offset + match.length;
  }
  replaced.append(fileName.substr(end));
  std::string_view name = text::firstCharacters(text::trimmed(replaced), longestName);
  for (std::size_t most = longestName; name.size() > longestNameBytes;) {
    name = text::firstCharacters(name, --most);
  }
  return name.empty() ? "attachment" : std::string(name);
}

void RemoteAttachmentStore::remove(const std::string& id) {
  const auto found = assemblies_.find(id);
  if (found == assemblies_.end()) return;
  held_ -= found->second.byteCount;
  assemblies_.erase(found);
}

std::expected<std::optional<RemoteAttachmentStore::Upload>, RemoteAttachmentStore::StoreError>
RemoteAttachmentStore::ingest(const RemoteEnvelope& e) {
  const auto refused = [](StoreError error) { return std::unexpected(error); };
  const auto uuid = e.mediaID ? Uuid::parse(*e.mediaID) : std::nullopt;
  if (!uuid || !e.fileName || !e.chunkIndex || !e.chunkCount || *e.chunkCount < 1 ||
      *e.chunkCount > mostChunks || *e.chunkIndex < 0 || *e.chunkIndex >= *e.chunkCount ||
      !e.data) {
    return refused(StoreError::invalidUpload);
  }
  auto chunk = crypto::fromBase64(*e.data);
  if (!chunk) return refused(StoreError::invalidUpload);
  if (chunk->size() > longestChunk) return refused(StoreError::invalidChunk);

  const std::string id = uuid->text();
  const std::string name = safeName(*e.fileName);
  auto [found, isNew] = assemblies_.try_emplace(id);
  auto& assembly = found->second;
  if (isNew) {
    assembly.fileName = name;
    assembly.chunkCount = *e.chunkCount;
  } else if (assembly.fileName != name || assembly.chunkCount != *e.chunkCount) {
    remove(id);
    return refused(StoreError::invalidUpload);
  }
  assembly.lastChunk = ++chunks_;
  const std::size_t size = chunk->size();
  if (assembly.chunks.try_emplace(*e.chunkIndex, std::move(*chunk)).second) {
    assembly.byteCount += size;
    held_ += size;
  }
  if (assembly.byteCount > longestFile) {
    remove(id);
    return refused(StoreError::fileTooLarge);
  }
  if (assembly.chunks.size() < static_cast<std::size_t>(assembly.chunkCount)) {
    while (held_ > mostHeld) {
      remove(std::ranges::min_element(assemblies_, {}, [](const auto& each) {
               return each.second.lastChunk;
             })->first);
    }
    return std::nullopt;
  }
  Upload upload;
  upload.fileName = name;
  upload.relativePath = std::string(folder) + "/" + e.mediaID->substr(0, 8) + "-" + name;
  upload.content.reserve(assembly.byteCount);
  for (const auto& [index, bytes] : assembly.chunks) upload.content += bytes;
  remove(id);
  return upload;
}

std::expected<void, std::string> RemoteAttachmentStore::Upload::write(
    const std::string& workspacePath) const {
  if (auto made = files::createFolders(workspacePath + "/" + std::string(folder)); !made) {
    return std::unexpected(made.error().description);
  }
  // The project's own content may have put links there.
  std::error_code error;
  const auto place = std::filesystem::canonical(workspacePath + "/" + std::string(folder), error);
  if (error || place != std::filesystem::canonical(workspacePath, error) / folder) {
    return std::unexpected("The folder for attachments leads out of the project.");
  }
  const auto written = files::writeAtomically(workspacePath + "/" + relativePath, content,
                                              std::nullopt, files::Links::replace);
  if (!written) return std::unexpected(written.error().description);
  return {};
}

}  // namespace vantrell
