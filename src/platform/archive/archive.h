// Opens archives of others (tar, plain or compressed). Nothing of an archive is trusted: it may
// hold files and folders only, all of them inside the folder that it is opened in. Blocks; any
// thread. libarchive is loaded at the first use.
#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <string>
#include <string_view>

namespace vantrell::archive {

struct Limits {
  std::uint64_t bytes = std::uint64_t{4} << 30;  // of all files together
  std::uint64_t entries = 100'000;
};

/// Opens the archive, given as its bytes, in a folder that it makes and that must not exist. Files
/// get mode 0755 or 0644, are new, and are on the disk when this returns. A link, a device, a name
/// that is absolute or has "..", a name that comes twice, and an archive that ends too early are
/// errors; what was written until then stays for the caller to remove. `progress` gets the part of
/// the archive that was read, from 0 to 1. The error is a sentence.
std::expected<void, std::string> extract(std::string_view bytes, const std::string& folder,
                                         const std::function<void(double)>& progress = nullptr,
                                         const Limits& limits = {});

}  // namespace vantrell::archive
