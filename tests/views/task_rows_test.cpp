#include "views/task_rows.h"

#include <gmock/gmock.h>

#include "support/task_records.h"
#include "views/run_rows.h"
#include "views/sidebar.h"

namespace vantrell::views {
namespace {

using ::testing::ElementsAre;
using tests::projectWith;
using tests::taskWithID;

RunRecord runWith(RunRecordStatus status) {
  RunRecord run;
  run.id = Uuid::random();
  run.status = status;
  run.startedAt = Date(100);
  run.updatedAt = Date(160);
  return run;
}

TEST(TaskRows, PinnedFirstThenTheNewest) {
  auto pinned = taskWithID("00000001", "pinned", Date(1));
  pinned.isPinned = true;
  auto archived = taskWithID("00000002", "archived", Date(9));
  archived.isArchived = true;
  const std::vector<Workspace> workspaces = {
      projectWith("/a", {taskWithID("00000003", "old", Date(2)), archived}),
      projectWith("/b", {taskWithID("00000004", "new", Date(3)), pinned})};
  const auto titles = [&](ArchivedTasks which, std::optional<Uuid> project = std::nullopt) {
    std::vector<std::string> all;
    for (const auto& each : listedTasks(workspaces, which, project)) {
      all.push_back(each.thread->title);
    }
    return all;
  };
  EXPECT_THAT(titles(ArchivedTasks::leftOut), ElementsAre("pinned", "new", "old"));
  EXPECT_THAT(titles(ArchivedTasks::only), ElementsAre("archived"));
  EXPECT_THAT(titles(ArchivedTasks::included), ElementsAre("pinned", "archived", "new", "old"));
  EXPECT_THAT(titles(ArchivedTasks::included, workspaces[0].id), ElementsAre("archived", "old"));
}

TEST(TaskRows, StateFollowsTheLatestRunAndWhatIsLive) {
  using Status = RunRecordStatus;
  struct Case {
    std::string name;
    std::optional<Status> run;
    std::optional<LiveState> live;
    TaskState state;
  };
  using Kind = ConnectionState::Kind;
  const Case cases[] = {
      {"without a run", {}, {}, TaskState::fresh},
      {"at work", Status::running, {}, TaskState::working},
      {"stopped", Status::cancelled, {}, TaskState::stopped},
      {"a question without a run", Status::completed, LiveState{Kind::ready, true},
       TaskState::waiting},
      {"a turn that is beginning", Status::failed, LiveState{Kind::connecting},
       TaskState::starting},
      {"at rest after a failure", Status::failed, LiveState{Kind::failed}, TaskState::failed},
      {"the run knows better", Status::waitingApproval, LiveState{Kind::working},
       TaskState::waiting},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    auto thread = taskWithID("00000001", "x");
    if (each.run) thread.runs = {runWith(*each.run)};
    EXPECT_EQ(taskState(thread, each.live), each.state) << word(taskState(thread));
  }
}

TEST(TaskRows, NamesAreFitToBeShown) {
  auto thread = taskWithID("00000001", "one\n\x1b[31mtwo");
  thread.lastProvider = AgentProvider::kimi;
  thread.draftText = "half a tho";
  const auto row = taskRow(projectWith("/home/a/\xE2\x80\xAEx", {}), thread);
  EXPECT_EQ(row.title, "one ␛[31mtwo");
  EXPECT_EQ(row.project, "<U+202E>x");
  EXPECT_EQ(row.provider, AgentProvider::kimi);
  EXPECT_TRUE(row.hasDraft);
  EXPECT_EQ(shownTitle(" \n"), "(untitled)");
}

TEST(ProjectRows, GeneralFirstThenThePinnedOnes) {
  auto archived = taskWithID("00000001", "x", Date(9));
  archived.isArchived = true;
  std::vector<Workspace> workspaces = {
      projectWith("/general", {}),
      projectWith("/b", {archived, taskWithID("00000002", "y", Date(5))}), projectWith("/a", {})};
  workspaces[2].isPinned = true;
  const auto rows = projectRows(workspaces);
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_EQ(rows[0].name + rows[1].name + rows[2].name, "generalab");
  EXPECT_TRUE(rows[0].isGeneral && !rows[1].isGeneral);
  EXPECT_EQ(rows[2].tasks, 1U);
  EXPECT_EQ(rows[2].archivedTasks, 1U);
  EXPECT_EQ(rows[2].updatedAt, Date(9));
  EXPECT_FALSE(rows[0].updatedAt);
}

TEST(Sidebar, EachTaskStandsInOnePlace) {
  auto pinned = taskWithID("00000001", "pinned", Date(1));
  pinned.isPinned = true;
  auto archived = taskWithID("00000002", "archived", Date(9));
  archived.isArchived = true;
  const auto older = taskWithID("00000003", "older", Date(3));
  const auto newer = taskWithID("00000004", "newer", Date(5));
  std::vector<Workspace> workspaces = {projectWith("/general", {older, archived}),
                                       projectWith("/a", {}),
                                       projectWith("/b", {older, pinned, newer})};
  workspaces[2].isPinned = true;
  const auto shown = sidebar(workspaces, [&](const ThreadExecutionKey& key) {
    return key.threadID == newer.id ? std::optional(LiveState{ConnectionState::Kind::working})
                                    : std::nullopt;
  });
  const auto titles = [](const std::vector<TaskRow>& rows) {
    std::string all;
    for (const auto& row : rows) all += row.title + " ";
    return all;
  };
  EXPECT_EQ(titles(shown.pinned), "pinned ");
  EXPECT_EQ(titles(shown.archived), "archived ");
  ASSERT_EQ(shown.projects.size(), 3U);
  EXPECT_EQ(titles(shown.projects[0].tasks), "older ");
  EXPECT_EQ(shown.projects[1].project.name + titles(shown.projects[1].tasks), "bnewer older ");
  EXPECT_EQ(shown.projects[1].tasks[0].state, TaskState::working);
  EXPECT_TRUE(shown.projects[2].tasks.empty()) << "a project without tasks is listed as well";
}

TEST(RunRows, TimesAreThoseOfTheRunUntilItEndsAndOfNowMeanwhile) {
  auto run = runWith(RunRecordStatus::running);
  run.lastActivityAt = Date(150);
  EXPECT_EQ(runRow(run, Date(165)).lasted, "1m 5s");
  EXPECT_EQ(runRow(run, Date(165)).lastSign, "15s ago");
  run.status = RunRecordStatus::failed;
  run.completedAt = Date(130);
  run.statusMessage = "It broke.\nBadly.";
  const auto row = runRow(run, Date(160 + 3 * 3600));
  EXPECT_EQ(row.lasted, "30s");
  EXPECT_EQ(row.lastSign, "3 h ago");
  EXPECT_EQ(row.message, "It broke. Badly.");
}

TEST(RunRows, CountsWhatWantsAttention) {
  std::vector<RunActivity> all;
  for (const auto status : {RunRecordStatus::running, RunRecordStatus::waitingApproval,
                            RunRecordStatus::failed, RunRecordStatus::completed}) {
    all.push_back({.threadTitle = "", .run = runWith(status)});
  }
  EXPECT_EQ(attentionCount(all), 2U);
  EXPECT_EQ(activityRows(all, Date(200))[1].title, "(untitled)");
}

TEST(RunRows, TimeIsToldByItsSize) {
  const std::pair<double, std::string> cases[] = {
      {-5, "just now"},           {59, "just now"},          {60, "1 min ago"},
      {3599, "59 min ago"},       {3600, "1 h ago"},         {86399, "23 h ago"},
      {86400, "1 day ago"},       {3 * 86400, "3 days ago"}, {14 * 86400, "2 weeks ago"},
      {56 * 86400, "2000-11-06"},
  };
  for (const auto& [seconds, words] : cases) EXPECT_EQ(ago(Date(-seconds), Date(0)), words);
  EXPECT_EQ(minuteOf(Date(-60)), "2000-12-31 23:59 UTC");
}

}  // namespace
}  // namespace vantrell::views
