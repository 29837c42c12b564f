#include "platform/storage/user_defaults.h"

#include <cmath>
#include <csignal>
#include <gtest/gtest.h>
#include <limits>
#include <sqlite3.h>
#include <sys/stat.h>

#include "platform/files/files.h"
#include "platform/storage/database.h"
#include "support/in_child.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

using tests::TemporaryFolder;

std::unique_ptr<UserDefaults> opened(const std::string& path) {
  auto defaults = UserDefaults::open(path);
  EXPECT_TRUE(defaults) << defaults.error();
  return defaults ? std::move(*defaults) : UserDefaults::inMemory();
}

/// Another program at the same file.
class OtherProgram {
 public:
  explicit OtherProgram(const std::string& path) { sqlite3_open(path.c_str(), &database_); }
  ~OtherProgram() { sqlite3_close(database_); }
  OtherProgram(const OtherProgram&) = delete;
  OtherProgram& operator=(const OtherProgram&) = delete;
  bool run(const char* sql) {
    return sqlite3_exec(database_, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
  }

 private:
  sqlite3* database_ = nullptr;
};

TEST(UserDefaults, TellTheTypesApart) {
  const TemporaryFolder folder;
  const auto defaults = opened(folder / "settings");
  EXPECT_TRUE(defaults->setText("t", "1"));
  EXPECT_TRUE(defaults->setBoolean("b", true));
  EXPECT_TRUE(defaults->setNumber("n", 1));
  EXPECT_TRUE(defaults->setData("d", "1"));
  for (const char* key : {"b", "n", "d", "absent"}) EXPECT_FALSE(defaults->text(key)) << key;
  for (const char* key : {"t", "n", "d", "absent"}) EXPECT_FALSE(defaults->boolean(key)) << key;
  for (const char* key : {"t", "b", "d", "absent"}) EXPECT_FALSE(defaults->number(key)) << key;
  for (const char* key : {"t", "b", "n", "absent"}) EXPECT_FALSE(defaults->data(key)) << key;
  EXPECT_EQ(defaults->text("t"), "1");
  EXPECT_EQ(defaults->boolean("b"), true);
  EXPECT_EQ(defaults->number("n"), 1);
  EXPECT_EQ(defaults->data("d"), "1");
  EXPECT_TRUE(defaults->setBoolean("t", false));
  EXPECT_FALSE(defaults->text("t")) << "the new type takes the place of the old";
  EXPECT_EQ(defaults->boolean("t"), false);
  EXPECT_TRUE(defaults->remove("t"));
  EXPECT_FALSE(defaults->boolean("t"));
  EXPECT_TRUE(defaults->remove("t")) << "absent is well";
}

TEST(UserDefaults, ComeBackAsTheyWere) {
  const TemporaryFolder folder;
  const std::string bytes("\0\xFF\0'x", 5);
  const double numbers[] = {0.1, -0.0, 1e300, 5e-324, std::numeric_limits<double>::infinity()};
  {
    const auto defaults = opened(folder / "settings");
    EXPECT_TRUE(defaults->setText("text", "\u00e9 \"'; DROP TABLE settings"));
    EXPECT_TRUE(defaults->setText("nul", std::string("a\0b", 3)));
    EXPECT_TRUE(defaults->setText("", ""));
    EXPECT_TRUE(defaults->setBoolean("no", false));
    EXPECT_TRUE(defaults->setData("data", bytes));
    EXPECT_TRUE(defaults->setData("empty", {}));
    for (const double number : numbers) {
      EXPECT_TRUE(defaults->setNumber(std::to_string(number), number));
    }
    EXPECT_TRUE(defaults->setText("gone", "x"));
    EXPECT_TRUE(defaults->remove("gone"));
  }
  const auto defaults = opened(folder / "settings");
  EXPECT_EQ(defaults->text("text"), "\u00e9 \"'; DROP TABLE settings");
  EXPECT_EQ(defaults->text("nul"), std::string("a\0b", 3));
  EXPECT_EQ(defaults->text(""), "");
  EXPECT_EQ(defaults->boolean("no"), false);
  EXPECT_EQ(defaults->data("data"), bytes);
  EXPECT_EQ(defaults->data("empty"), "");
  for (const double number : numbers) {
    EXPECT_EQ(defaults->number(std::to_string(number)), number);
  }
  EXPECT_FALSE(defaults->text("gone"));
}

TEST(UserDefaults, AreForTheirOwnerOnly) {
  const TemporaryFolder folder;
  const mode_t mask = umask(0);
  const auto defaults = opened(folder / "settings");
  EXPECT_TRUE(defaults->setText("k", "v"));
  for (const std::string& name : folder.names()) {
    EXPECT_EQ(TemporaryFolder::modeOf(folder / name), 0600u) << name;
  }
  umask(mask);
}

TEST(UserDefaults, SayWhyTheyCannotBeOpened) {
  const TemporaryFolder folder;
  const std::string garbage = folder.file("garbage", std::string(5000, 'x'));
  const auto notADatabase = UserDefaults::open(garbage);
  ASSERT_FALSE(notADatabase);
  EXPECT_EQ(notADatabase.error(),
            "Could not open the settings in " + garbage +
                ": it is not a settings file. Move it away to start with new settings.");
  EXPECT_EQ(TemporaryFolder::contentOf(garbage), std::string(5000, 'x'));

  const auto noFolder = UserDefaults::open(folder / "absent/settings");
  ASSERT_FALSE(noFolder);
  EXPECT_EQ(noFolder.error(), "Could not open the settings in " + folder / "absent/settings" +
                                  ": No such file or directory");
  EXPECT_FALSE(UserDefaults::open(folder.path()));

  // The longest path that works, and one more byte.
  const std::string name(200, 'n');
  std::string place = folder.folder(name + "/" + name);
  ASSERT_LT(place.size(), 500U);
  place += "/" + std::string(503 - place.size(), 'n');
  EXPECT_TRUE(UserDefaults::open(place));
  const auto tooLong = UserDefaults::open(place + "n");
  ASSERT_FALSE(tooLong);
  EXPECT_TRUE(tooLong.error().ends_with(
      ": its path is 505 bytes long, and at most 504 are possible; use a shorter one"))
      << tooLong.error();
  EXPECT_FALSE(files::exists(place + "n"));

  opened(folder / "newer");
  ASSERT_TRUE(OtherProgram(folder / "newer").run("PRAGMA user_version = 99"));
  const auto newer = UserDefaults::open(folder / "newer");
  ASSERT_FALSE(newer);
  EXPECT_NE(newer.error().find("newer version"), std::string::npos) << newer.error();

  ASSERT_TRUE(OtherProgram(folder / "other").run("CREATE TABLE settings (a, b)"));
  EXPECT_FALSE(UserDefaults::open(folder / "other"));
}

TEST(UserDefaults, KeepTheOldValueWhileAnotherProgramHoldsTheFile) {
  const TemporaryFolder folder;
  const auto defaults = opened(folder / "settings");
  ASSERT_TRUE(defaults->setText("k", "old"));
  OtherProgram other(folder / "settings");
  ASSERT_TRUE(other.run("BEGIN IMMEDIATE"));
  EXPECT_FALSE(defaults->setText("k", "new"));
  EXPECT_EQ(defaults->text("k"), "old");
  EXPECT_EQ(defaults->lastError(), "Could not change the settings in " + folder / "settings" +
                                       ": another program is using it.");
  ASSERT_TRUE(other.run("COMMIT"));
  EXPECT_TRUE(defaults->setText("k", "new"));
  EXPECT_EQ(defaults->lastError(), "");
  EXPECT_EQ(opened(folder / "settings")->text("k"), "new");
}

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
