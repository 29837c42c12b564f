#include "records/values/project_context.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "records/stores/orchestration_store.h"
#include "records/stores/project_context_store.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {
namespace {

using ::testing::EndsWith;
using ::testing::StartsWith;

ProjectContextProfile profile(int pins, int decisions, int sources, std::string instructions = "") {
  auto made = ProjectContextProfile::blank(Date(1));
  made.instructions = std::move(instructions);
  for (int i = 1; i <= pins; ++i) made.pinnedFiles.push_back(fmt::format("pin{}", i));
  for (int i = 1; i <= decisions; ++i) {
    made.decisions.push_back({Uuid::random(), fmt::format("D{}", i), "so it is", Date(i)});
  }
  for (int i = 1; i <= sources; ++i) {
    made.discoveredSources.push_back({fmt::format("s{}.md", i), "s", "Two\nlines", Date(5)});
  }
  return made;
}

TEST(ProjectContextProfile, SummaryCountsWhatThereIs) {
  const struct {
    ProjectContextProfile profile;
    std::optional<std::string> summary;
  } cases[] = {
      {profile(0, 0, 0), std::nullopt},
      {profile(0, 0, 0, " \n"), std::nullopt},
      {profile(1, 1, 1, "x"), "Instructions · 1 pinned file · 1 decision · 1 guidance file"},
      {profile(2, 0, 3), "2 pinned files · 3 guidance files"},
  };
  for (const auto& each : cases) EXPECT_EQ(each.profile.summary(), each.summary);
}

TEST(ProjectContextProfile, PromptHasTheSectionsThatHaveContent) {
  EXPECT_EQ(profile(0, 0, 0).promptContext(100), "");
  EXPECT_EQ(profile(2, 1, 2, " Test. \n").promptContext(1000),
            "PROJECT INSTRUCTIONS\nTest.\n\nPINNED PROJECT FILES\n- pin1\n- pin2\n\n"
            "PROJECT DECISIONS\n- D1: so it is\n\n"
            "DISCOVERED PROJECT GUIDANCE\n- s1.md: Two\nlines\n- s2.md: Two\nlines");
  const std::string last20 = profile(0, 25, 0).promptContext(10'000);
  EXPECT_THAT(last20, StartsWith("PROJECT DECISIONS\n- D6: so it is\n- D7"));
  EXPECT_THAT(last20, EndsWith("- D25: so it is"));
  EXPECT_EQ(profile(0, 0, 0, "aé👨‍👩‍👧‍👦b").promptContext(24),
            "PROJECT INSTRUCTIONS\naé👨‍👩‍👧‍👦")
      << "cut between characters as people see them";
}

TEST(ProjectContextStore, KeepsTheProfileAndTakesAnIncompleteOneForNone) {
  TemporaryFolder folder;
  OrchestrationStore store(folder.path(), [] { return Date(9); }, [](const auto&) {});
  const Uuid id = *Uuid::parse("ABCDEF00-0000-4000-8000-000000000001");
  auto kept = profile(1, 25, 1, "x");
  ASSERT_TRUE(saveProjectContext(store, kept, id));
  EXPECT_EQ(loadStoredProjectContext(store, id, Date(3)), kept);
  kept.hooks = {{{id, ProjectHookEvent::taskFailed, "bin/hook", false}}};
  ASSERT_TRUE(saveProjectContext(store, kept, id));
  EXPECT_EQ(loadStoredProjectContext(store, id, Date(3)), kept);

  constexpr std::string_view keys[] = {R"("instructions":"x",)", R"("pinnedFiles":[],)",
                                       R"("decisions":[],)", R"("discoveredSources":[],)",
                                       R"("updatedAt":"2026-01-01T00:00:00Z",)"};
  for (std::size_t missing = 0; missing <= std::size(keys); ++missing) {
    std::string text = "{";
    for (std::size_t i = 0; i < std::size(keys); ++i) {
      if (i != missing) text += keys[i];
    }
    folder.file("Orchestration/contexts/abcdef00-0000-4000-8000-000000000001.json",
                text + R"("other":1})");
    const auto loaded = loadStoredProjectContext(store, id, Date(3));
    const bool isComplete = missing == std::size(keys);
    EXPECT_EQ(loaded == ProjectContextProfile::blank(Date(3)), !isComplete) << text;
  }
}

}  // namespace
}  // namespace vantrell::tests
