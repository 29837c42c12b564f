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

/// In children: GLib reads the environment once a process.
class Trash : public testing::Test {
 protected:
  Trash() {
    environment_.set("HOME", folder_.path());
    environment_.set("XDG_DATA_HOME", folder_.folder("data"));
  }
  std::string trashed(const std::string& name) const {
    return folder_ / "data/Trash/files/" + name;
  }

  TemporaryFolder folder_;
  tests::Environment environment_;
};

TEST_F(Trash, KeepsWhatItTakesAsItIs) {
  EXPECT_EQ(tests::inChild([&] {
              const std::string file = folder_.file("a b/100% \u00e9.txt", "content");
              folder_.file("tree/deep/file", "x");
              fs::create_symlink("tree", folder_ / "link");
              if (!files::moveToTrash(file) || files::exists(file)) return 1;
              if (!files::moveToTrash(folder_ / "link/")) return 2;
              if (!fs::is_symlink(trashed("link"))) return 3;
              if (!files::moveToTrash(folder_ / "tree")) return 4;
              if (TemporaryFolder::contentOf(trashed("tree/deep/file")) != "x") return 5;
              if (TemporaryFolder::contentOf(trashed("100% \u00e9.txt")) != "content") return 6;
              return 0;
            }),
            0);
  const std::string info =
      TemporaryFolder::contentOf(folder_ / "data/Trash/info/100% \u00e9.txt.trashinfo");
  EXPECT_TRUE(info.contains("Path=" + folder_.path() + "/a%20b/100%25%20%C3%A9.txt\n")) << info;
}

TEST_F(Trash, RefusesWhatCannotBeMoved) {
  EXPECT_EQ(tests::inChild([&] {
              const auto absent = files::moveToTrash(folder_ / "absent");
              if (absent || absent.error().code != std::errc::no_such_file_or_directory) return 1;
              // It holds the trash itself.
              return files::moveToTrash(folder_.path()) || !files::exists(folder_ / "data") ? 2 : 0;
            }),
            0);
}

TEST_F(Trash, NeverCopiesToAnotherVolume) {
  tests::expectOnSmallVolume(folder_.folder("volume"), "1m", [&] {
    const std::string file = folder_.file("volume/file", "x");
    const auto moved = files::moveToTrash(file);
    if (files::exists(trashed("file"))) return 1;
    // GLib makes no trash on every kind of volume; then the file stays where it is.
    return moved.has_value() == files::exists(file) ? 2 : 0;
  });
}

}  // namespace
}  // namespace vantrell
