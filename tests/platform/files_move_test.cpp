#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/files/files.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

using tests::TemporaryFolder;

TEST(KeepAside, GivesEachFileANameOfItsOwnWithTheDate) {
  const TemporaryFolder folder;
  const std::pair<std::string, std::string> cases[] = {
      {"fleet.json", "fleet that could not be read 2001-01-01 00.00.00Z.json"},
      {"fleet.json", "fleet that could not be read 2001-01-01 00.00.00Z (2).json"},
      {"fleet.json", "fleet that could not be read 2001-01-01 00.00.00Z (3).json"},
      {"bare", "bare that could not be read 2001-01-01 00.00.00Z"},
      {".hidden", ".hidden that could not be read 2001-01-01 00.00.00Z"},
      {"a.sqlite-wal", "a that could not be read 2001-01-01 00.00.00Z.sqlite-wal"},
  };
  int number = 0;
  std::set<std::string> kept;
  for (const auto& [name, aside] : cases) {
    const std::string path = folder.file(name, std::to_string(++number));
    EXPECT_EQ(files::quarantine(path, Date(0.5)).value(), folder / aside);
    EXPECT_EQ(TemporaryFolder::contentOf(folder / aside), std::to_string(number));
    kept.insert(aside);
  }
  EXPECT_EQ(folder.names(), kept);
  EXPECT_EQ(files::quarantine(folder / "absent", Date(0)).error().code,
            std::errc::no_such_file_or_directory);
}

TEST(Move, NeverReplaces) {
  const TemporaryFolder folder;
  const std::string from = folder.file("from", "new");
  const std::string to = folder.file("to", "old");
  EXPECT_EQ(files::move(from, to).error().code, std::errc::file_exists);
  EXPECT_EQ(TemporaryFolder::contentOf(to), "old");
  ASSERT_TRUE(files::remove(to));
  EXPECT_TRUE(files::move(from, to));
  EXPECT_EQ(folder.names(), std::set<std::string>{"to"});
}

TEST(CopyFile, CopiesAllOfAFileOrLeavesNothing) {
  const TemporaryFolder folder;
  // More than one step of the copy.
  const std::string whole(40'000'000, 'x');
  const std::string from = folder.file("from", whole);
  std::filesystem::create_symlink("from", folder / "link");
  ASSERT_EQ(::chmod(from.c_str(), 0640), 0);
  ASSERT_TRUE(files::copyFile(folder / "link", folder / "copy"));
  EXPECT_EQ(TemporaryFolder::contentOf(folder / "copy"), whole);
  struct stat info{};
  ASSERT_EQ(::stat((folder / "copy").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0640u);

  std::stop_source stop;
  stop.request_stop();
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  const auto names = folder.names();
  EXPECT_EQ(files::copyFile(from, folder / "stopped", stop.get_token()).error().code,
            std::errc::operation_canceled);
  EXPECT_FALSE(files::copyFile(folder / "pipe", folder / "none"));
  EXPECT_FALSE(files::copyFile(folder / "absent", folder / "none"));
  EXPECT_EQ(files::copyFile(folder / "pipe", from).error().code, std::errc::invalid_argument);
  EXPECT_EQ(files::copyFile(folder / "copy", from).error().code, std::errc::file_exists);
  EXPECT_EQ(folder.names(), names);
}

}  // namespace
}  // namespace vantrell
