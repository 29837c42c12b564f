#include "project/artifact_discovery.h"

#include <gmock/gmock.h>

#include "support/temporary_folder.h"

namespace vantrell {
namespace {

using Shown = std::vector<std::pair<std::string, ProjectArtifact::Source>>;
using enum ProjectArtifact::Source;

class ArtifactDiscoveryTest : public testing::Test {
 protected:
  ArtifactDiscoveryTest() {
    for (const auto* name : {"a.txt", "B.txt", "sub/c.txt", "d.txt"}) {
      outside.file(name, "");
      project.file(name, "");
    }
  }
  /// With one tool call of this input.
  Shown found(const std::string& input, const std::vector<GitChangedFile>& changed = {},
              const std::vector<ImagineItem>& items = {}) {
    const ChatEntry entries[] = {
        {.id = "1", .kind = ChatEntryKind::tool, .text = input},
        {.id = "2", .kind = ChatEntryKind::user, .text = R"({"path":"d.txt"})"},
        // What a hook has said is no input.
        {.id = "3",
         .kind = ChatEntryKind::tool,
         .text = R"({"path":"d.txt"})",
         .title = "Hook · x"}};
    Shown shown;
    for (const auto& each : ArtifactDiscovery::artifacts(root, changed, entries, items)) {
      shown.emplace_back(each.displayPath(), each.source);
    }
    return shown;
  }

  tests::TemporaryFolder project, outside;
  std::optional<std::string> root = project.path();
};

TEST_F(ArtifactDiscoveryTest, ReadsThePathsThatToolsWereGiven) {
  const std::string other = outside / "a.txt";
  const struct {
    const char* what;
    std::string input;
    Shown shown;
  } cases[] = {
      {"a path", R"({"path":"a.txt"})", {{"a.txt", agent}}},
      {"other spellings of the key",
       R"({"FILE_PATH":"a.txt","outputPath":"B.txt"})",
       {{"a.txt", agent}, {"B.txt", agent}}},
      {"keys of other names", R"({"paths":"a.txt","file":"B.txt"})", {}},
      {"in lists and deep inside",
       R"([{"edits":{"target_path":["a.txt",["sub/c.txt"]]}}])",
       {{"a.txt", agent}, {"sub/c.txt", agent}}},
      {"a dictionary has keys of its own", R"({"path":{"old":"a.txt"}})", {}},
      {"no key", R"("a.txt")", {}},
      {"no JSON", "path: a.txt", {}},
      {"elsewhere", R"({"path":")" + other + "\"}", {{other, agent}}},
      {"folders, and what is gone", R"({"path":["sub","gone.txt","",3]})", {}},
      {"one file under two names", R"({"path":["a.txt","sub/.././a.txt"]})", {{"a.txt", agent}}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    EXPECT_EQ(found(each.input), each.shown);
  }
}

TEST_F(ArtifactDiscoveryTest, FirstSourceWinsAndNamesAreInOrder) {
  ImagineItem fox, same;
  fox.localPath = outside / "d.txt";
  same.localPath = project / "a.txt";
  const std::vector<GitChangedFile> changed{{.path = "sub/c.txt"},
                                            {.path = "B.txt"},
                                            {.path = "a.txt"},
                                            {.path = "gone.txt"},
                                            {.path = "d.txt"}};
  EXPECT_EQ(found(R"({"path":"d.txt"})", changed, {fox, same}),
            (Shown{{"d.txt", agent},
                   {"a.txt", ProjectArtifact::Source::changed},
                   {"B.txt", ProjectArtifact::Source::changed},
                   {"sub/c.txt", ProjectArtifact::Source::changed},
                   {fox.localPath, imagine}}));
}

TEST_F(ArtifactDiscoveryTest, WithoutAProjectOnlyFullPathsCount) {
  root.reset();
  const std::string other = outside / "a.txt";
  EXPECT_EQ(found(R"({"path":["a.txt",")" + other + "\"]}", {{.path = "B.txt"}}),
            (Shown{{other, agent}}));
}

}  // namespace
}  // namespace vantrell
