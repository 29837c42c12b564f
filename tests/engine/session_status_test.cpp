#include "engine/turns/session_status.h"

#include <gtest/gtest.h>

#include "engine/tasks/run_activity.h"
#include "engine/turns/run_activity_timing.h"

namespace vantrell {
namespace {

constexpr Date now(800'000'000);

TEST(RunActivityTiming, CountsWholeSecondsAndNoneOfTheFuture) {
  const std::pair<double, std::string> cases[] = {
      {0, "0s"},       {59.9, "59s"},      {60, "1m 0s"}, {3599.9, "59m 59s"},
      {3600, "1h 0m"}, {90'061, "25h 1m"}, {-5, "0s"},    {-90'000, "0s"}};
  for (const auto& [seconds, label] : cases) {
    EXPECT_EQ(RunActivityTiming::elapsedLabel(now - Seconds(seconds), now), label);
  }
}

TEST(SessionStatusQuery, KnowsTheQuestionAndLeavesTheRestToTheAgent) {
  const std::string_view questions[] = {
      "status", "current status", "session status", "task status", "run status",
      "what is the status", "what s the status", "what is the session status",
      "what s the session status", "what is the task status", "what s the task status",
      // However it is written.
      " Status?! ", "What's the STATUS?", "what\u2019s the task-status", "are you running",
      "Is codex still running?", "is it working", "is claude working right now",
      "is the agent/model still currently running", "is it is it is it is it working"};
  const std::string_view prompts[] = {"",
                                      "?!",
                                      "running",
                                      "you running",
                                      "is it",
                                      "is working",
                                      "are the running",
                                      "is the build still running?",
                                      "status of the build",
                                      "the status",
                                      "stat us",
                                      "is kimi working on tests",
                                      "working is it",
                                      "is it is it is it is it still working",
                                      "st\u00e4tus",
                                      "status2"};
  for (const auto text : questions) EXPECT_TRUE(SessionStatusQuery::matches(text)) << text;
  for (const auto text : prompts) EXPECT_FALSE(SessionStatusQuery::matches(text)) << text;
}

constexpr std::string_view lastSentence =
    "This status came directly from vantrell and did not wait for or interrupt the agent.";

TEST(SessionStatusReport, SaysNoMoreThanIsKnown) {
  using enum SessionStatusPhase;
  const auto ago = [](double seconds) { return std::optional(now - Seconds(seconds)); };
  const struct {
    SessionStatusReport report;
    std::string text;
  } cases[] = {
      {{.phase = idle, .providerLabel = "Kimi", .startedAt = ago(9), .lastActivityAt = ago(9)},
       "No task is currently running in this session."},
      {{.phase = working}, "Yes—The agent is still working."},
      {{.phase = working,
        .providerLabel = "Kimi",
        .startedAt = ago(200),
        .lastActivityAt = ago(-9)},
       "Yes—Kimi is still working.\n\n- **Running:** 3m 20s\n- **Activity:** Active now"},
      {{.phase = working, .providerLabel = "Kimi", .lastActivityAt = ago(119.9)},
       "Yes—Kimi is still working.\n\n- **Activity:** Active now"},
      {{.phase = working, .providerLabel = "Kimi", .lastActivityAt = ago(120)},
       "Yes—Kimi is still marked as working, but activity is currently quiet.\n\n"
       "- **Activity:** Quiet for 2m 0s"},
      {{.phase = working, .lastActivityAt = ago(599.9)},
       "Yes—The agent is still marked as working, but activity is currently quiet.\n\n"
       "- **Activity:** Quiet for 9m 59s"},
      {{.phase = working,
        .providerLabel = "Kimi",
        .startedAt = ago(7300),
        .lastActivityAt = ago(600),
        .queuedPromptCount = 2,
        .detail = "hm"},
       "Kimi is still marked as running, but it has not produced new activity recently and may "
       "need attention.\n\n- **Running:** 2h 1m\n- **Activity:** No new activity for 10m 0s\n"
       "- **Attention:** hm\n- **Queue:** 2 prompts waiting"},
      {{.phase = completed, .startedAt = ago(9), .lastActivityAt = ago(9), .detail = ""},
       "No task is currently running. The last task completed successfully."},
      {{.phase = interrupted, .startedAt = ago(9)},
       "No task is currently running. The previous task was interrupted when vantrell restarted."},
  };
  for (const auto& [report, text] : cases) {
    EXPECT_EQ(report.message(now), text + "\n\n" + std::string(lastSentence));
  }
}

TEST(SessionStatusReport, TellsOfARecordWhatItsLatestRunTells) {
  using enum RunRecordStatus;
  using Phase = SessionStatusPhase;
  ChatThread thread = ChatThread::make("A task", now);
  EXPECT_EQ(SessionStatusReport::ofRecord(thread), SessionStatusReport{});
  thread.lastProvider = AgentProvider::grok;
  thread.queuedPrompts.resize(2);
  thread.runs.resize(2);
  thread.runs[0].status = failed;
  RunRecord& run = thread.runs[1];
  run.startedAt = now;
  run.statusMessage = "Write a file";
  EXPECT_EQ(SessionStatusReport::ofRecord(thread).providerLabel, "Grok");
  run.provider = AgentProvider::kimi;
  const std::pair<RunRecordStatus, Phase> phases[] = {{starting, Phase::connecting},
                                                      {running, Phase::working},
                                                      {waitingApproval, Phase::waitingApproval},
                                                      {completed, Phase::completed},
                                                      {failed, Phase::failed},
                                                      {cancelled, Phase::idle},
                                                      {interrupted, Phase::interrupted}};
  for (const auto& [status, phase] : phases) {
    run.status = status;
    const auto report = SessionStatusReport::ofRecord(thread);
    EXPECT_EQ(report.phase, phase) << rawText(status);
    EXPECT_EQ(report.detail.has_value(), status == waitingApproval || status == failed);
    EXPECT_EQ(report.providerLabel, "Kimi");
    EXPECT_EQ(report.startedAt, now);
    EXPECT_EQ(report.queuedPromptCount, 2U);
  }
}

// ---- the activity list --------------------------------------------------------------------------

class ActivityList : public testing::Test {
 protected:
  struct Unread final : Transcript::Source {
    std::vector<ChatEntry> read(std::size_t first, std::size_t last) override {
      ADD_FAILURE() << "a transcript was read";
      return std::vector<ChatEntry>(last - first);
    }
    Part readInBackground(std::size_t, std::size_t) override { return {}; }
    void reportLost(std::size_t) override {}
  };

  /// A task whose latest run changed so many seconds ago; its transcript cannot be read.
  static ChatThread task(std::string title, RunRecordStatus status, double age) {
    ChatThread thread = ChatThread::make(std::move(title), now);
    thread.entries = Transcript(3, std::make_shared<Unread>());
    thread.runs.resize(2);
    thread.runs[0].status = RunRecordStatus::failed;
    thread.runs[1].id = Uuid::random();
    thread.runs[1].status = status;
    thread.runs[1].updatedAt = now - Seconds(age);
    return thread;
  }
};

TEST_F(ActivityList, HoldsWhatIsUnderWayFailedOrJustDoneNewestFirst) {
  using enum RunRecordStatus;
  std::vector<Workspace> workspaces(3);
  workspaces[0].name = "General";
  workspaces[0].threads.push_back(task("working", running, 50));
  workspaces[0].threads.push_back(task("done", completed, 299.9));
  workspaces[0].threads.push_back(task("long done", completed, 300));
  workspaces[0].threads.push_back(ChatThread::make("new", now));
  workspaces[2].id = Uuid::random();
  workspaces[2].name = "site";
  workspaces[2].threads.push_back(task("stopped", cancelled, 0));
  workspaces[2].threads.push_back(task("failed long ago", failed, 1e7));
  workspaces[2].threads.push_back(task("asks", waitingApproval, 50));
  workspaces[2].threads.push_back(task("starts", starting, 1));
  workspaces[2].threads.push_back(task("broken off", interrupted, 50));

  const auto rows = activities(workspaces, now);
  std::vector<std::string> titles;
  for (const auto& row : rows) titles.push_back(row.threadTitle);
  EXPECT_EQ(titles, (std::vector<std::string>{"starts", "working", "asks", "broken off", "done",
                                              "failed long ago"}));
  const ChatThread& starts = workspaces[2].threads[3];
  EXPECT_EQ(rows[0],
            (RunActivity{workspaces[2].id, "site", starts.id, "starts", starts.runs.back()}));
}

}  // namespace
}  // namespace vantrell
