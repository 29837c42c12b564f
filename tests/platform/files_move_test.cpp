#include <gtest/gtest.h>

#include "platform/files.h"
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
    EXPECT_EQ(files::keepAside(path, Date(0.5)).value(), folder / aside);
    EXPECT_EQ(TemporaryFolder::contentOf(folder / aside), std::to_string(number));
    kept.insert(aside);
  }
  EXPECT_EQ(folder.names(), kept);
  EXPECT_EQ(files::keepAside(folder / "absent", Date(0)).error().code,
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

}  // namespace
}  // namespace vantrell
