#include <csignal>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "platform/storage/database.h"
#include "platform/storage/user_defaults.h"
#include "support/in_child.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

using tests::TemporaryFolder;

/// What is stored, read by a fresh start.
std::optional<std::string> storedText(const std::string& path, const char* key) {
  const auto defaults = UserDefaults::open(path);
  EXPECT_TRUE(defaults) << defaults.error();
  return defaults ? (*defaults)->text(key) : std::nullopt;
}

TEST(UserDefaultsFaults, AFullDiskLeavesEveryKindOfValueAndSaysSo) {
  const TemporaryFolder folder;
  const std::string path = folder / "settings";
  const int status = tests::inChild([&] {
    auto defaults = UserDefaults::open(path);
    if (!defaults || !(*defaults)->setText("k", "old") || !(*defaults)->setText("gone", "x")) {
      return 1;
    }
    if (!tests::limitFileSize(1)) return 2;
    for (const auto& change : std::initializer_list<std::function<bool()>>{
             [&] { return (*defaults)->setText("k", "new"); },
             [&] { return (*defaults)->setData("k", "new"); },
             [&] { return (*defaults)->setBoolean("k", true); },
             [&] { return (*defaults)->setNumber("k", 1); },
             [&] { return (*defaults)->remove("gone"); }}) {
      if (change()) return 3;
      if (!(*defaults)->lastError().contains(path)) return 4;
    }
    // Room for a beginning of the value, in the middle of which it ends.
    if (!tests::limitFileSize(64 * 1024)) return 5;
    if ((*defaults)->setText("k", std::string(200'000, 'x'))) return 6;
    if ((*defaults)->text("k") != "old" || (*defaults)->text("gone") != "x") return 7;
    return (*defaults)->setText("other", "goes on") ? 0 : 8;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(storedText(path, "k"), "old");
  EXPECT_EQ(storedText(path, "gone"), "x");
  EXPECT_EQ(storedText(path, "other"), "goes on");
}

TEST(UserDefaultsFaults, AReadOnlyFolderIsReadAndNotChanged) {
  const TemporaryFolder folder;
  const std::string volume = folder.folder("volume");
  tests::expectOnSmallVolume(volume, "1m", [&] {
    if (!(*UserDefaults::open(volume + "/settings"))->setText("k", "old")) return 1;
    if (!tests::makeReadOnly(volume)) return 2;
    const auto defaults = UserDefaults::open(volume + "/settings");
    if (!defaults || (*defaults)->remove("k") || (*defaults)->setBoolean("k", true) ||
        (*defaults)->setText("k", "new")) {
      return 3;
    }
    if (!(*defaults)->lastError().contains(volume + "/settings")) return 4;
    return (*defaults)->text("k") == "old" ? 0 : 5;
  });
}

TEST(UserDefaultsFaults, ATypeOfALaterVersionIsPassedOverAndKept) {
  const TemporaryFolder folder;
  const std::string path = folder / "settings";
  EXPECT_TRUE((*UserDefaults::open(path))->setText("k", "old"));
  sqlite3* database = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(database, "INSERT INTO settings VALUES ('later', 'list', 'a,b')", nullptr,
                         nullptr, nullptr),
            SQLITE_OK);
  {
    const auto defaults = UserDefaults::open(path);
    EXPECT_FALSE((*defaults)->text("later"));
    EXPECT_TRUE((*defaults)->setText("k", "new"));
  }
  int rows = 0;
  sqlite3_exec(
      database, "SELECT * FROM settings WHERE key = 'later' AND type = 'list'",
      [](void* count, int, char**, char**) { return ++*static_cast<int*>(count), 0; }, &rows,
      nullptr);
  EXPECT_EQ(rows, 1);
  sqlite3_close(database);
}

TEST(UserDefaultsFaults, DamageIsToldFromWhatOnlyCannotBeOpenedNow) {
  const TemporaryFolder folder;
  const std::string path = folder / "settings";
  EXPECT_TRUE((*UserDefaults::open(path))->setText("k", std::string(50'000, 'x')));
  const std::string sound = TemporaryFolder::contentOf(path);
  EXPECT_FALSE(Database::isDamaged(path));
  EXPECT_FALSE(Database::isDamaged(folder / "absent"));
  EXPECT_FALSE(Database::isDamaged(folder.path()));
  sqlite3* holder = nullptr;
  sqlite3_open(path.c_str(), &holder);
  ASSERT_EQ(sqlite3_exec(holder, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
  EXPECT_FALSE(Database::isDamaged(path)) << "in use";
  sqlite3_close(holder);
  for (const std::string& damaged :
       {std::string(5000, 'x'), sound.substr(0, 5000), sound.substr(0, 90),
        sound.substr(0, 4096) + std::string(sound.size() - 4096, '\xFF')}) {
    EXPECT_TRUE(Database::isDamaged(folder.file("damaged", damaged))) << damaged.size();
    const auto refused = UserDefaults::open(folder / "damaged");
    ASSERT_FALSE(refused);
    EXPECT_NE(refused.error().find(folder / "damaged"), std::string::npos);
  }
}

}  // namespace
}  // namespace vantrell
