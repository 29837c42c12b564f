// Where this program is installed, and whether it may replace itself there. A release archive holds
// one folder with `bin/` and `release.json`, which names the version, the feed of later releases
// and the key that they are signed with; an installed program without it came in another way.
// Blocks for a few small files; any thread.
#pragma once

#include <expected>
#include <optional>
#include <string>

namespace vantrell {

struct ReleaseInformation {
  static constexpr const char* fileName = "release.json";
  std::string version;
  std::string feed;       // may be empty
  std::string publicKey;  // Ed25519, 32 bytes

  /// Of the release in this folder. The error is a sentence.
  static std::expected<ReleaseInformation, std::string> read(const std::string& root);
};

struct Installation {
  std::string root;  // absolute, without links
  ReleaseInformation release;

  /// That of the program in the given `bin` folder. The error says how to update instead.
  static std::expected<Installation, std::string> of(const std::string& programFolder);

  std::string program() const { return root + "/bin/vantrell"; }
  /// Beside the root, on its volume: what an update makes, and the version before it until the new
  /// one has started.
  std::string workFolder() const;
};

}  // namespace vantrell
