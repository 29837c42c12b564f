// The feed of updates and an archive, which come from a server. An item that is taken can be
// downloaded and checked; versions have one order; an archive stays in its folder.
#include <cstdint>
#include <cstdlib>
#include <filesystem>

#include "platform/archive/archive.h"
#include "platform/values/url.h"
#include "updates/appcast.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace vantrell;
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const auto one = input.substr(0, size / 2), other = input.substr(size / 2);
  require(compareVersions(one, other) == -compareVersions(other, one));
  require(compareVersions(one, one) == 0);
  if (const auto items = parseAppcast(input)) {
    for (const auto& item : *items) {
      require(!item.version.empty());
      const auto url = Url::parse(item.archiveURL);
      require(item.isInformationOnly ||
              (url && url->scheme() == "https" && item.signature.size() == 64));
    }
    const auto newest = newestUpdate(*items, "1");
    require(!newest || compareVersions(newest->version, "1") > 0);
  }
  static const auto base = [] {
    std::string pattern = "/tmp/vantrell-fuzz-XXXXXX";
    require(::mkdtemp(pattern.data()) != nullptr);
    return pattern;
  }();
  static_cast<void>(
      archive::extract(input, base + "/inside", nullptr, {.bytes = 1 << 20, .entries = 100}));
  std::filesystem::remove_all(base + "/inside");
  require(std::filesystem::is_empty(base));
  return 0;
}
