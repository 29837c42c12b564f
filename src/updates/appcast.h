// The feed of releases: an RSS 2.0 document with an item for each release. Of an item count
// `version` (its own element or an attribute of the enclosure), `shortVersionString`, which people
// see in its place, and `informationalUpdate`, which has nothing to install; of its enclosure
// `url`, `length`, `edSignature` and `os`. Prefixes of names do not count. Pure functions, any
// thread.
#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vantrell {

struct AppcastItem {
  std::string version;         // compared with compareVersions()
  std::string displayVersion;  // for people
  std::string archiveURL;      // HTTPS; empty for one that only informs
  std::uint64_t length = 0;    // bytes of the archive; 0: not told
  std::string signature;       // of the archive, Ed25519, 64 bytes
  bool isInformationOnly = false;

  bool operator==(const AppcastItem&) const = default;
};

/// Negative, 0 or positive. A version is cut into numbers and words: numbers compare as numbers of
/// any length, a number is newer than a word, and where one version ends first it is older, unless
/// the other goes on with a word: "1.0b1" comes before "1.0", and that before "1.0.1".
int compareVersions(std::string_view left, std::string_view right);

/// All items in the order of the feed, but those for another system or of a channel of their own.
/// An item without a version, or with an archive that is not signed or not behind HTTPS, is left
/// out: it cannot be installed. The error is a sentence.
std::expected<std::vector<AppcastItem>, std::string> parseAppcast(std::string_view document);

/// The newest one, if it is newer than the version.
std::optional<AppcastItem> newestUpdate(const std::vector<AppcastItem>& items,
                                        std::string_view currentVersion);

}  // namespace vantrell
