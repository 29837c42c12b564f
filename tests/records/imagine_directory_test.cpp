#include "records/stores/imagine_directory.h"

#include <filesystem>
#include <gtest/gtest.h>

#include "support/in_child.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

using tests::TemporaryFolder;

TEST(ImagineDirectory, IsMadeOrTakenOverFromTheEarlierName) {
  const struct {
    std::vector<const char*> before, after;
    bool isThere = true;
  } cases[] = {
      {{}, {}},
      {{"Larkmoor/Imagine/history.json", "Larkmoor/Imagine/deep/a.png", "Larkmoor/other"},
       {"vantrell/Imagine/history.json", "vantrell/Imagine/deep/a.png", "Larkmoor/other"}},
      {{"Larkmoor/Imagine/old.png", "vantrell/Imagine/new.png"},
       {"Larkmoor/Imagine/old.png", "vantrell/Imagine/new.png"}},
      {{"Larkmoor/Imagine/old.png", "vantrell"}, {"Larkmoor/Imagine/old.png", "vantrell"}, false},
  };
  for (const auto& each : cases) {
    const TemporaryFolder folder;
    for (const auto* path : each.before) folder.file(path, path);
    const auto directory = imagineDirectory(folder / "vantrell/");
    ASSERT_EQ(directory.has_value(), each.isThere);
    if (directory) {
      EXPECT_EQ(*directory, folder / "vantrell/Imagine");
      EXPECT_TRUE(files::isFolder(*directory));
    } else {
      EXPECT_TRUE(directory.error().description.contains(folder / "vantrell"));
    }
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
      count += entry.is_regular_file() ? 1 : 0;
    }
    EXPECT_EQ(count, each.after.size());
    for (const auto* path : each.after) EXPECT_TRUE(files::exists(folder / path)) << path;
  }
}

TEST(ImagineDirectory, MovesToAnotherVolumeWholeOrNotAtAll) {
  const TemporaryFolder folder;
  const std::string support = folder.folder("vantrell");
  folder.file("Larkmoor/Imagine/deep/old.png", std::string(10'000, 'x'));
  tests::expectOnSmallVolume(support, "64k", [&] {
    folder.file("vantrell/filler", std::string(60'000, 'x'));
    if (imagineDirectory(support)) return 1;
    if (folder.names("vantrell") != std::set<std::string>{"filler"}) return 2;
    if (!files::exists(folder / "Larkmoor/Imagine/deep/old.png")) return 3;
    (void)files::remove(folder / "vantrell/filler");
    if (!imagineDirectory(support)) return 4;
    if (TemporaryFolder::contentOf(support + "/Imagine/deep/old.png").size() != 10'000) return 5;
    return files::exists(folder / "Larkmoor/Imagine") ? 6 : 0;
  });
}

}  // namespace
}  // namespace vantrell
