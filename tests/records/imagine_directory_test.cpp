#include "records/stores/imagine_directory.h"

#include <gtest/gtest.h>

#include "support/in_child.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

using tests::TemporaryFolder;

TEST(ImagineDirectory, IsMadeWhereThereIsNone) {
  const TemporaryFolder folder;
  const auto directory = imagineDirectory(folder / "vantrell");
  ASSERT_TRUE(directory) << directory.error().description;
  EXPECT_EQ(*directory, folder / "vantrell/Imagine");
  EXPECT_TRUE(files::isFolder(*directory));
  EXPECT_FALSE(files::exists(folder / "Larkmoor"));
}

TEST(ImagineDirectory, TakesOverThatOfTheEarlierName) {
  const TemporaryFolder folder;
  folder.file("Larkmoor/Imagine/history.json", "[]");
  folder.file("Larkmoor/Imagine/deep/picture.png", "png");
  folder.file("Larkmoor/other", "stays");
  const auto directory = imagineDirectory(folder / "vantrell/");
  ASSERT_TRUE(directory) << directory.error().description;
  EXPECT_EQ(TemporaryFolder::contentOf(*directory + "/history.json"), "[]");
  EXPECT_EQ(TemporaryFolder::contentOf(*directory + "/deep/picture.png"), "png");
  EXPECT_FALSE(files::exists(folder / "Larkmoor/Imagine"));
  EXPECT_TRUE(files::exists(folder / "Larkmoor/other"));
  EXPECT_EQ(imagineDirectory(folder / "vantrell").value(), *directory) << "and again";
}

TEST(ImagineDirectory, LeavesTheEarlierOneAloneWhereThereAreBoth) {
  const TemporaryFolder folder;
  folder.file("Larkmoor/Imagine/old.png", "old");
  folder.file("vantrell/Imagine/new.png", "new");
  ASSERT_TRUE(imagineDirectory(folder / "vantrell"));
  EXPECT_EQ(folder.names("vantrell/Imagine"), std::set<std::string>{"new.png"});
  EXPECT_EQ(folder.names("Larkmoor/Imagine"), std::set<std::string>{"old.png"});
}

TEST(ImagineDirectory, SaysWhyItCannotBeHad) {
  const TemporaryFolder folder;
  folder.file("vantrell", "a file where the folder should be");
  folder.file("Larkmoor/Imagine/old.png", "old");
  const auto directory = imagineDirectory(folder / "vantrell");
  ASSERT_FALSE(directory);
  EXPECT_NE(directory.error().description.find(folder / "vantrell"), std::string::npos);
  EXPECT_EQ(folder.names("Larkmoor/Imagine"), std::set<std::string>{"old.png"});
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
