#include "records/stores/imagine_store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/temporary_folder.h"

namespace vantrell {
namespace {

class ImagineStoreTest : public testing::Test {
 protected:
  ImagineStore store() {
    return {support, [] { return Date(); },
            [this](const std::string& text) { notices.push_back(text); }};
  }
  std::optional<ImagineItem> import(const std::string& path) {
    const auto item = ImagineStore::importMedia(support, path, "a fox", Date(5));
    EXPECT_TRUE(item) << item.error().description;
    return item.value_or(std::nullopt);
  }

  tests::TemporaryFolder folder;
  const std::string support = folder / "data/vantrell";
  std::vector<std::string> notices;
};

TEST_F(ImagineStoreTest, CopiesAMediumByWhatItIs) {
  const std::string path = folder.file("x/Fox.PNG", "picture");
  const auto item = import(folder / "x/../x//Fox.PNG");
  ASSERT_TRUE(item);
  EXPECT_EQ(item->kind, ImagineKind::image);
  EXPECT_EQ(item->localPath, support + "/Imagine/" + item->fileName);
  EXPECT_TRUE(item->fileName.ends_with(".png")) << item->fileName;
  EXPECT_TRUE(Uuid::parse(item->fileName.substr(0, 36)));
  EXPECT_EQ(folder.contentOf(item->localPath), "picture");
  EXPECT_EQ(folder.contentOf(path), "picture") << "the agent's file stays";
  EXPECT_EQ(import(folder.file("x/fox.webm", ""))->kind, ImagineKind::video);
}

TEST_F(ImagineStoreTest, KnowsAFileHoweverItsPathIsWritten) {
  const auto plain = folder.file("a fox.png", "1");
  const auto percent = folder.file("a%20hare.png", "2");
  for (const auto& written : {plain, "//" + plain, "//" + folder.path() + "/x/..//a%20fox.png"}) {
    EXPECT_EQ(ImagineStore::sourceOf(written), plain) << written;
  }
  EXPECT_EQ(ImagineStore::sourceOf("//" + percent), percent) << "a name with a percent sign";
  EXPECT_EQ(ImagineStore::sourceOf(folder / "a%20fox.png"), folder / "a%20fox.png") << "no URL";
  EXPECT_EQ(ImagineStore::sourceOf("///x%zz.png"), "/x%zz.png");
  EXPECT_FALSE(import(plain + std::string("\0.png", 5))) << "no file has such a name";
}

TEST_F(ImagineStoreTest, PassesOverWhatIsNoMedium) {
  folder.folder("folder.png");
  ASSERT_EQ(::mkfifo((folder / "pipe.png").c_str(), 0600), 0);
  EXPECT_FALSE(import(folder / "missing.png"));
  EXPECT_FALSE(import(folder.file("notes.txt", "x")));
  EXPECT_FALSE(import(folder.file(".png", "x")));
  EXPECT_FALSE(import(folder / "folder.png"));
  EXPECT_FALSE(ImagineStore::importMedia(support, folder / "pipe.png", "", Date()))
      << "it would be waited for without end";
  EXPECT_TRUE(folder.names("data/vantrell/Imagine").empty());
}

TEST_F(ImagineStoreTest, KeepsTheHistoryAndForgetsFilesThatAreGone) {
  EXPECT_TRUE(store().load().empty());
  EXPECT_FALSE(files::exists(support)) << "looking makes nothing";
  const auto fox = *import(folder.file("fox.png", "1"));
  const auto owl = *import(folder.file("owl.mp4", "2"));
  ASSERT_TRUE(store().save({owl, fox}));
  EXPECT_EQ(store().load(), (std::vector{owl, fox}));
  EXPECT_EQ(ImagineStore::peek(support), (std::vector{owl, fox}));
  const auto json = json::parse(folder.contentOf(support + "/Imagine/history.json"));
  EXPECT_EQ(json->asArray()->at(1), Json(JsonObject{{"id", fox.id.text()},
                                                    {"kind", "image"},
                                                    {"prompt", "a fox"},
                                                    {"localPath", fox.localPath},
                                                    {"fileName", fox.fileName},
                                                    {"createdAt", 5}}));
  std::filesystem::remove(owl.localPath);
  EXPECT_EQ(store().load(), std::vector{fox});
}

TEST_F(ImagineStoreTest, FindsTheFilesOfALibraryThatWasTakenOver) {
  auto item = *import(folder.file("fox.png", "1"));
  ASSERT_TRUE(store().save({item}));
  std::filesystem::create_directories(folder / "data/Larkmoor");
  std::filesystem::rename(support + "/Imagine", folder / "data/Larkmoor/Imagine");
  ASSERT_EQ(ImagineStore::peek(support).size(), 1u);
  EXPECT_TRUE(files::exists(folder / "data/Larkmoor/Imagine")) << "looking moves nothing";
  std::filesystem::remove_all(support);
  EXPECT_EQ(store().load(), std::vector{item});
  EXPECT_TRUE(files::exists(item.localPath));
}

TEST_F(ImagineStoreTest, KeepsAHistoryThatItCannotReadAside) {
  const auto fox = *import(folder.file("fox.png", "1"));
  const std::string broken = R"([{"id":"?"}])";
  folder.file("data/vantrell/Imagine/history.json", broken);
  EXPECT_TRUE(ImagineStore::problem(support)->contains("history.json could not be read"));
  auto damaged = store();
  EXPECT_TRUE(damaged.load().empty());
  EXPECT_EQ(folder.contentOf(support + "/Imagine/history.json"), broken)
      << "until there is another";
  ASSERT_TRUE(damaged.save({fox}));
  ASSERT_EQ(notices.size(), 1u);
  EXPECT_EQ(folder.names("data/vantrell/Imagine").size(), 3u) << "picture, history, what was kept";
  EXPECT_FALSE(ImagineStore::problem(support));
  EXPECT_EQ(store().load(), std::vector{fox});
}

TEST_F(ImagineStoreTest, KeepsAHistoryAsideThatItCouldNotReach) {
  folder.file("data/Larkmoor/Imagine/history.json", "[]");
  folder.file("data/vantrell", "a file in its place");
  auto unreached = store();
  EXPECT_TRUE(unreached.load().empty());
  std::filesystem::remove(support);
  ASSERT_TRUE(unreached.save({}));
  ASSERT_EQ(notices.size(), 1u);
  EXPECT_EQ(folder.names("data/vantrell/Imagine").size(), 2u) << "the history, what was kept";
}

}  // namespace
}  // namespace vantrell
