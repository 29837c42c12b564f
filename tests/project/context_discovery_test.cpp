#include "project/context_discovery.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "platform/text/text.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

std::vector<std::string> pathsIn(const std::string& root) {
  std::vector<std::string> paths;
  for (const auto& each : discoverContextSources(root)) paths.push_back(each.path);
  return paths;
}

TEST(ContextDiscovery, TakesTheFilesThatAreKnownToGuide) {
  TemporaryFolder folder;
  for (const char* name : {"README.md", ".cursorrules", "CLAUDE.md", "AGENTS.md", "OTHER.md",
                           ".github/copilot-instructions.md"}) {
    folder.file(name, "text");
  }
  EXPECT_THAT(pathsIn(folder.path()),
              ElementsAre("AGENTS.md", "CLAUDE.md", "README.md", ".cursorrules",
                          ".github/copilot-instructions.md"));
  const auto sources = discoverContextSources(folder.path());
  EXPECT_EQ(sources[0].title, "AGENTS");
  EXPECT_EQ(sources[3].title, ".cursorrules");
  EXPECT_EQ(sources[4].title, "copilot-instructions");
  EXPECT_TRUE(sources[0].modifiedAt);
  EXPECT_THAT(pathsIn(folder / "missing"), IsEmpty());
}

TEST(ContextDiscovery, TakesRulesByTheirExtensionAndNotFromSubfolders) {
  TemporaryFolder folder;
  for (const char* name :
       {"a.md", "B.MDC", "c.txt", ".hidden.md", "d.rst", "noextension", ".md", "inner/e.md"}) {
    folder.file(std::string(".cursor/rules/") + name, "text");
  }
  EXPECT_THAT(pathsIn(folder.path()),
              UnorderedElementsAre(".cursor/rules/a.md", ".cursor/rules/B.MDC",
                                   ".cursor/rules/c.txt", ".cursor/rules/.hidden.md"));
}

TEST(ContextDiscovery, SkipsWhatIsNoTextToTell) {
  const std::string whole(1'000'000, 'x');
  const struct {
    const char* about;
    std::string content;
    std::optional<std::string> summary;
  } cases[] = {
      {"blank", " \n\t", std::nullopt},
      {"NUL alone", std::string("\0\0 \n", 4), std::nullopt},
      {"not UTF-8", "a\xff", std::nullopt},
      {"one byte too many", whole + "x", std::nullopt},
      {"as large as may be", whole, std::string(1600, 'x')},
      {"NUL and blanks around", std::string("\0 a\0b \n", 7), "ab"},
  };
  for (const auto& [about, content, summary] : cases) {
    TemporaryFolder folder;
    folder.file("README.md", content);
    const auto sources = discoverContextSources(folder.path());
    EXPECT_EQ(sources.empty() ? std::nullopt : std::optional(sources[0].summary), summary) << about;
  }
}

TEST(ContextDiscovery, DoesNotReadAHugeFileOrWaitForAPipe) {
  TemporaryFolder folder;
  folder.file("README.md", "");
  std::filesystem::resize_file(folder / "README.md", std::uintmax_t{1} << 40);  // sparse
  ASSERT_EQ(mkfifo((folder / "AGENTS.md").c_str(), 0600), 0);
  folder.folder("CLAUDE.md");
  EXPECT_THAT(pathsIn(folder.path()), IsEmpty());
}

TEST(ContextDiscovery, SummaryIsCutBetweenCharacters) {
  TemporaryFolder folder;
  std::string flags;
  for (int i = 0; i < 1700; ++i) flags += "🇩🇪";
  folder.file("README.md", flags);
  EXPECT_EQ(text::characterCount(discoverContextSources(folder.path()).at(0).summary), 1600U);
}

}  // namespace
}  // namespace vantrell::tests
