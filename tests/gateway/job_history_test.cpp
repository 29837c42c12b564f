// The limits of what is kept of jobs.
#include "gateway/job_history.h"

#include <gtest/gtest.h>

namespace vantrell {
namespace {

using enum GatewayJobStatus;

GatewayJob job(int number, GatewayJobStatus status) {
  return {.id = Uuid::random(),
          .prompt = std::to_string(number),
          .createdAt = Date(number),
          .status = status};
}

TEST(JobHistory, UnfinishedJobsStayAndTheNewestOfTheRest) {
  const struct {
    int unfinished, finished;
    std::size_t kept;  // of the finished
  } cases[] = {{0, 100, 100}, {0, 101, 100}, {1, 100, 99}, {99, 5, 1}, {100, 5, 0}, {120, 5, 0}};
  for (const auto& [unfinished, finished, kept] : cases) {
    std::vector<GatewayJob> jobs;
    for (int i = 0; i < finished; ++i) jobs.push_back(job(i, i % 2 ? failed : completed));
    for (int i = 0; i < unfinished; ++i) jobs.push_back(job(-i, queued));  // older than the rest
    const JobHistory history(jobs);
    const auto all = history.all();
    ASSERT_EQ(all.size(), static_cast<std::size_t>(unfinished) + kept);
    EXPECT_EQ(history.unfinishedCount({}), static_cast<std::size_t>(unfinished));
    EXPECT_TRUE(std::ranges::is_sorted(all, {}, [](const auto& each) { return each->createdAt; }));
    if (kept > 0) {
      EXPECT_EQ(all.back()->prompt, std::to_string(finished - 1));
    }
  }
}

TEST(JobHistory, WhatWasHandedOutStaysAsItWas) {
  JobHistory history;
  const auto made = job(1, queued);
  history.add(made);
  const auto before = history.find(made.id);
  history.change(made.id)->output = "more";
  EXPECT_EQ(before->output, "");
  EXPECT_EQ(history.find(made.id)->output, "more");
  EXPECT_EQ(history.change(Uuid::random()), nullptr);
}

TEST(JobHistory, OldestEventGoes) {
  auto changed = job(1, working);
  for (int i = 0; i < 201; ++i) addEvent(changed, "tool", std::to_string(i), Date(i));
  EXPECT_EQ(changed.events.size(), 200u);
  EXPECT_EQ(changed.events.front().message, "1");
  EXPECT_EQ(changed.events.back().message, "200");
  finish(changed, failed, std::string(5000, 'x'), Date(0));
  EXPECT_EQ(changed.events.back().message.size(), JobHistory::longestMessage);
  EXPECT_EQ(changed.error->size(), 5000u);
}

}  // namespace
}  // namespace vantrell
