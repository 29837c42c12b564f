#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/files/files.h"
#include "support/environment.h"
#include "support/in_child.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

using tests::TemporaryFolder;
namespace fs = std::filesystem;

class Trash : public testing::Test {
 protected:
  Trash() {
    environment_.set("XDG_DATA_HOME", folder_.folder("data"));
    environment_.set("TZ", "UTC-05:30");  // five and a half hours east
    tzset();
  }

  std::string infoOf(const std::string& name) const {
    return TemporaryFolder::contentOf(folder_ / "data/Trash/info/" + name + ".trashinfo");
  }

  TemporaryFolder folder_;
  tests::Environment environment_;
};

TEST_F(Trash, KeepsWhatItTakesWithPlaceAndDate) {
  const std::string path = folder_.file("a b/100% \u00e9.txt", "content");
  std::time_t now = std::time(nullptr) + (5 * 60 + 30) * 60;
  const auto moved = files::moveToTrash(path);
  ASSERT_TRUE(moved) << moved.error().description;
  EXPECT_EQ(*moved, folder_ / "data/Trash/files/100% \u00e9.txt");
  EXPECT_EQ(TemporaryFolder::contentOf(*moved), "content");
  EXPECT_FALSE(files::exists(path));

  const std::string info = infoOf("100% \u00e9.txt");
  const std::string beginning =
      "[Trash Info]\nPath=" + folder_.path() + "/a%20b/100%25%20%C3%A9.txt\nDeletionDate=";
  ASSERT_TRUE(info.starts_with(beginning)) << info;
  std::tm date{};
  const char* rest = strptime(info.c_str() + beginning.size(), "%Y-%m-%dT%H:%M:%S", &date);
  ASSERT_TRUE(rest) << info;
  EXPECT_STREQ(rest, "\n");
  EXPECT_GE(timegm(&date), now);
  EXPECT_LT(timegm(&date), now + 60);

  EXPECT_EQ(TemporaryFolder::modeOf(folder_ / "data/Trash/files"), 0700u);
}

TEST_F(Trash, NumbersNamesakes) {
  const char* expected[] = {"report.txt", "report.2.txt", "report.3.txt"};
  for (const char* name : expected) {
    const auto moved = files::moveToTrash(folder_.file("report.txt", name));
    ASSERT_TRUE(moved);
    EXPECT_EQ(files::lastComponent(*moved), name);
    EXPECT_EQ(TemporaryFolder::contentOf(*moved), name);
  }
  EXPECT_EQ(files::lastComponent(*files::moveToTrash(folder_.file(".env", ""))), ".env");
  EXPECT_EQ(files::lastComponent(*files::moveToTrash(folder_.file(".env", ""))), ".env.2");
}

TEST_F(Trash, TakesFoldersAndLinksAsTheyAre) {
  folder_.file("tree/deep/file", "x");
  fs::create_symlink("tree", folder_ / "link");
  const auto link = files::moveToTrash(folder_ / "link/");
  ASSERT_TRUE(link);
  EXPECT_TRUE(fs::is_symlink(*link));
  const auto tree = files::moveToTrash(folder_ / "tree");
  ASSERT_TRUE(tree);
  EXPECT_EQ(TemporaryFolder::contentOf(*tree + "/deep/file"), "x");
}

TEST_F(Trash, TakesNamesOfTheGreatestLength) {
  std::string name = "x";
  for (int i = 0; i < 127; ++i) name += "\u00e9";  // 255 bytes
  const auto moved = files::moveToTrash(folder_.file(name, "x"));
  ASSERT_TRUE(moved) << moved.error().description;
  EXPECT_TRUE(name.starts_with(files::lastComponent(*moved)));
  EXPECT_EQ(files::lastComponent(*moved).size() % 2, 1u) << "cut inside a character";
  EXPECT_EQ(infoOf(files::lastComponent(*moved)).find(name), std::string::npos);
}

TEST_F(Trash, RefusesWhatCannotBeMoved) {
  const auto absent = files::moveToTrash(folder_ / "absent");
  ASSERT_FALSE(absent);
  EXPECT_EQ(absent.error().code, std::errc::no_such_file_or_directory);
  EXPECT_FALSE(files::moveToTrash(folder_ / "absent/file"));
  // It holds the trash itself.
  EXPECT_FALSE(files::moveToTrash(folder_.path()));
  EXPECT_TRUE(folder_.names("data/Trash/info").empty());
  EXPECT_TRUE(files::exists(folder_.path()));
}

/// Each runs in a child that sees a volume of its own at folder_/volume.
class VolumeTrash : public Trash {
 protected:
  void onVolume(const std::function<int(const std::string& volume)>& part) {
    const std::string volume = folder_.folder("volume");
    tests::expectOnSmallVolume(volume, "1m", [&] { return part(volume); });
  }
  const std::string user_ = std::to_string(geteuid());
};

TEST_F(VolumeTrash, TakesTheTrashOfTheFilesOwnVolume) {
  onVolume([&](const std::string& volume) {
    const auto moved = files::moveToTrash(folder_.file("volume/a/file", "x"));
    if (!moved || *moved != volume + "/.Trash-" + user_ + "/files/file") return 1;
    const std::string info =
        TemporaryFolder::contentOf(volume + "/.Trash-" + user_ + "/info/file.trashinfo");
    return info.find("\nPath=a/file\n") != info.npos ? 0 : 2;
  });
}

TEST_F(VolumeTrash, FindsTheVolumeThroughALinkedFolder) {
  onVolume([&](const std::string& volume) {
    folder_.file("volume/a/file", "x");
    fs::create_directory_symlink("volume/a", folder_ / "way");
    const auto moved = files::moveToTrash(folder_ / "way/file");
    return moved && moved->starts_with(volume + "/.Trash-") ? 0 : 1;
  });
}

TEST_F(VolumeTrash, PrefersTheSharedTrashOnlyWhenItIsSafe) {
  onVolume([&](const std::string& volume) {
    const std::string shared = folder_.folder("volume/.Trash");
    const std::string own = volume + "/.Trash-" + user_;
    chmod(shared.c_str(), 0777);  // not sticky
    auto moved = files::moveToTrash(folder_.file("volume/1", ""));
    if (!moved || *moved != own + "/files/1") return 1;
    chmod(shared.c_str(), 01777);
    moved = files::moveToTrash(folder_.file("volume/2", ""));
    if (!moved || *moved != shared + "/" + user_ + "/files/2") return 2;
    fs::rename(shared, volume + "/elsewhere");
    fs::create_directory_symlink("elsewhere", shared);
    moved = files::moveToTrash(folder_.file("volume/3", ""));
    return moved && *moved == own + "/files/3" ? 0 : 3;
  });
}

TEST_F(VolumeTrash, NeverCopiesToAnotherVolume) {
  onVolume([&](const std::string& volume) {
    folder_.file("volume/file", "x");
    folder_.file("volume/.Trash-" + user_, "not a folder");
    const auto moved = files::moveToTrash(volume + "/file");
    if (moved || !files::exists(volume + "/file")) return 1;
    return folder_.names("data/Trash").empty() ? 0 : 2;
  });
}

}  // namespace
}  // namespace vantrell
