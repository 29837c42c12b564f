// Puts together the files that clients upload in chunks, and writes them into the project's folder.
// What is unfinished is bounded: beyond `mostHeld` bytes the upload gives way that has been silent
// for longest. Main queue; a finished file is written by the caller, off it.
#pragma once

#include <cstdint>
#include <expected>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "remote/protocol/remote_envelope.h"

namespace vantrell {

class RemoteAttachmentStore {
 public:
  static constexpr std::int64_t mostChunks = 160;
  static constexpr std::size_t longestChunk = 262'144;  // bytes, decoded
  static constexpr std::size_t longestFile = 20'971'520;
  static constexpr std::size_t longestName = 120;  // characters
  static constexpr std::size_t mostHeld = 8 * longestFile;

  enum class StoreError { invalidUpload, invalidChunk, fileTooLarge };
  static std::string_view description(StoreError error);

  struct Upload {
    std::string relativePath;  // below the project's folder
    std::string fileName;      // safe to use
    std::string content;
    /// Blocks; any thread. The error is a sentence.
    std::expected<void, std::string> write(const std::string& workspacePath) const;
  };
  /// Takes a chunk; the upload when it was the last one that was missing.
  std::expected<std::optional<Upload>, StoreError> ingest(const RemoteEnvelope& envelope);

  /// The last component of a path, with `_` in place of what no file should be called.
  static std::string safeName(std::string_view fileName);

 private:
  struct Assembly {
    std::string fileName;
    std::int64_t chunkCount = 0;
    std::map<std::int64_t, std::string> chunks;
    std::size_t byteCount = 0;
    std::uint64_t lastChunk = 0;  // when it came: the higher, the later
  };
  void remove(const std::string& id);

  std::map<std::string, Assembly> assemblies_;  // by the upload's id
  std::size_t held_ = 0;                        // bytes in all of them
  std::uint64_t chunks_ = 0;
};

}  // namespace vantrell
