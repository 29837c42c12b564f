#include "views/task_search.h"

#include <gmock/gmock.h>

#include "support/task_records.h"

namespace vantrell::views {
namespace {

using ::testing::ElementsAre;
using tests::entryWith;
using tests::projectWith;
using tests::taskWithID;

class TaskSearch : public ::testing::Test {
 protected:
  TaskSearch() {
    auto older = taskWithID("00000001", "The odd fixture", Date(100));
    older.entries = Transcript({entryWith("call_1", "no", ChatEntryKind::tool),
                                entryWith("e2", "An ODD thing, an odd one")});
    older.entries[0].title = "Read odd.json";
    auto newer = taskWithID("00000002", "Größe", Date(200));
    newer.entries = Transcript({entryWith("e3", "nothing"), entryWith("e4", "wie Odd")});
    newer.isArchived = true;
    workspaces = {projectWith("/general", {}), projectWith("/a", {older}),
                  projectWith("/b", {newer})};
  }
  /// "task/entry:before[hit]after" of each.
  std::vector<std::string> found(SearchRequest request, std::size_t most = 100) {
    std::vector<std::string> all;
    searchTasks(workspaces, request, [&](const SearchHit& hit) {
      all.push_back(hit.thread.title + "/" + (hit.entry ? hit.entry->id : "") + ":" + hit.before +
                    "[" + hit.hit + "]" + hit.after);
      return all.size() < most;
    });
    return all;
  }

  std::vector<Workspace> workspaces;
};

TEST_F(TaskSearch, FindsTitlesAndEntriesNewestTaskFirst) {
  EXPECT_THAT(found({.text = "odd"}),
              ElementsAre("Größe/e4:wie [Odd]", "The odd fixture/:The [odd] fixture",
                          "The odd fixture/call_1:Read [odd].json",
                          "The odd fixture/e2:An [ODD] thing, an odd one"));
  EXPECT_EQ(found({.text = "odd"}, 2).size(), 2U) << "it ends when it is told to";
  EXPECT_THAT(found({.text = "grösse"}), ElementsAre("Größe/:[Größe]"));
}

TEST_F(TaskSearch, LooksWhereItIsTold) {
  using Scope = SearchRequest::Scope;
  EXPECT_EQ(found({.text = "odd", .scope = Scope::titles}).size(), 1U);
  EXPECT_EQ(found({.text = "odd", .scope = Scope::entries}).size(), 3U);
  EXPECT_EQ(found({.text = "odd", .project = workspaces[2].id}).size(), 1U);
  EXPECT_THAT(found({.text = "Odd", .letterCase = text::Finder::Case::matters}),
              ElementsAre("Größe/e4:wie [Odd]"));
  EXPECT_TRUE(found({.text = "absent"}).empty());
}

TEST_F(TaskSearch, ExcerptsAreBoundedAndFitForATerminal) {
  const std::string ballast = [] {
    std::string text;
    while (text.size() < 100000) text += "ä";
    return text;
  }();
  auto task = taskWithID("00000003", "x");
  task.entries = Transcript({entryWith("e", ballast + "\n\x1b[31m needle\t" + ballast)});
  workspaces = {projectWith("/a", {task})};
  const auto all = found({.text = "NEEDLE"});
  ASSERT_EQ(all.size(), 1U);
  EXPECT_LT(all[0].size(), 1000U);
  EXPECT_TRUE(all[0].contains("ä ␛[31m [needle] ä")) << all[0];
  EXPECT_TRUE(all[0].starts_with("x/e:…ä") && all[0].ends_with("ä…")) << all[0];
}

TEST_F(TaskSearch, EntriesGoByWhatTellsThemApart) {
  const ChatThread task = [] {
    auto made = taskWithID("00000003", "x");
    made.entries = Transcript({entryWith("call_abcdefg1", ""), entryWith("call_abcdefg2", ""),
                               entryWith("1234567890", ""), entryWith("short", "")});
    return made;
  }();
  std::vector<std::string> ids;
  for (const auto& entry : task.entries) ids.push_back(shortEntryID(task, entry));
  EXPECT_THAT(ids, ElementsAre("call_abcdefg1", "call_abcdefg2", "12345678", "short"));
  EXPECT_EQ(shortEntryIDs(task), ids);
}

}  // namespace
}  // namespace vantrell::views
