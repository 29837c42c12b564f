#include "app/user_state.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "app/vantrell_app.h"
#include "platform/queues/manual_main_queue.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

using testing::HasSubstr;
using tests::TemporaryFolder;

class OpenedUserState : public testing::Test {
 protected:
  std::expected<UserState, std::string> opened() {
    return UserState::open({folder_ / "support", folder_ / "config"}, Date(0));
  }
  /// Settings of some pages, closed, so that all is in the one file.
  std::string storedSettings() {
    auto state = opened();
    EXPECT_TRUE(state) << state.error();
    EXPECT_TRUE(state->defaults->setText("key", std::string(50'000, 'x')));
    return folder_ / "config/defaults.sqlite";
  }

  TemporaryFolder folder_;
  const std::string aside_ =
      folder_ / "config/defaults that could not be read 2001-01-01 00.00.00Z.sqlite";
};

TEST_F(OpenedUserState, KeepsADamagedSettingsFileAndBeginsAnew) {
  const std::function<void(const std::string&)> damages[] = {
      [](const std::string& path) { std::ofstream(path) << std::string(5000, 'x'); },
      [](const std::string& path) { std::filesystem::resize_file(path, 5000); },
      [](const std::string& path) {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(4096);
        file << std::string(4096, '\xFF');
      },
  };
  for (const auto& damage : damages) {
    const std::string path = storedSettings();
    damage(path);
    std::ofstream(path + "-wal") << "an old log";
    const std::string content = TemporaryFolder::contentOf(path);
    {
      const auto state = opened();
      ASSERT_TRUE(state) << state.error();
      ASSERT_TRUE(state->notice);
      EXPECT_THAT(*state->notice, HasSubstr(aside_));
      EXPECT_FALSE(state->defaults->text("key"));
      EXPECT_TRUE(state->defaults->setText("key", "new"));
    }
    EXPECT_EQ(TemporaryFolder::contentOf(aside_), content) << "nothing is lost";
    const auto again = opened();
    ASSERT_TRUE(again) << again.error();
    EXPECT_FALSE(again->notice);
    EXPECT_EQ(again->defaults->text("key"), "new");
    std::filesystem::remove_all(folder_ / "config");
  }
}

TEST_F(OpenedUserState, MendsAFileWhoseDamageOnlyAWriteWouldMeet) {
  const std::string path = storedSettings();
  EXPECT_TRUE(opened()->defaults->setText("key", "short"));  // its former pages are free now
  {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(32);  // the list of free pages begins in one that is used
    file << std::string("\0\0\0\2", 4);
  }
  {
    const auto state = opened();
    ASSERT_TRUE(state) << state.error();
    ASSERT_TRUE(state->notice);
    EXPECT_THAT(*state->notice, HasSubstr(aside_));
    EXPECT_EQ(state->defaults->text("key"), "short");
    EXPECT_TRUE(state->defaults->setText("other", std::string(50'000, 'y')));
  }
  EXPECT_FALSE(opened()->notice);
  EXPECT_EQ(opened()->defaults->text("key"), "short");
}

TEST_F(OpenedUserState, LeavesAFileAloneThatIsOnlyNewerOrSomeoneElses) {
  const std::string path = storedSettings();
  for (const char* change : {"PRAGMA user_version = 99",
                             "DROP TABLE settings; PRAGMA user_version "
                             "= 0; CREATE TABLE settings (a, b)"}) {
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(database, change, nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(database);
    EXPECT_FALSE(opened()) << change;
    EXPECT_TRUE(files::exists(path));
    EXPECT_FALSE(files::exists(aside_));
  }
}

TEST_F(OpenedUserState, IsForOneProcessAtATime) {
  const auto first = opened();
  ASSERT_TRUE(first);
  const auto second = opened();
  ASSERT_FALSE(second);
  EXPECT_THAT(second.error(), HasSubstr("already running"));
}

TEST_F(OpenedUserState, TheProgramTellsTheUserAtItsStart) {
  std::ofstream(storedSettings()) << std::string(5000, 'x');
  ManualMainQueue main;
  const auto app = VantrellApp::start(
      main, {.supportFolder = folder_ / "support", .configFolder = folder_ / "config"});
  ASSERT_TRUE(app) << app.error();
  ASSERT_TRUE((*app)->notice());
  EXPECT_THAT(*(*app)->notice(), HasSubstr("could not be read"));
}

}  // namespace
}  // namespace vantrell
