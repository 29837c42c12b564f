#include "engine/turns/prompt_queue.h"

#include <gmock/gmock.h>

#include "support/engine_fixture.h"
#include "support/held_executor.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace vantrell::tests {

class PromptQueueTest : public EngineFixture {
 protected:
  std::vector<std::string> queued() {
    std::vector<std::string> all;
    for (const auto& each : thread().queuedPrompts) all.push_back(each.text);
    return all;
  }
  std::vector<std::string> ran() {
    std::vector<std::string> all;
    for (const auto& each : thread().runs) all.push_back(each.prompt);
    return all;
  }
  void finish() {
    client().finishes();
    main.runReady();
  }
  Uuid id(std::size_t place) { return thread().queuedPrompts.at(place).id; }
};

TEST_F(PromptQueueTest, RunsInOrderAfterEachSuccessAndWaitsAfterAFailure) {
  start();
  work("One");
  ChatAttachment file;
  file.path = "/a.txt";
  app->selected().send("Two", {file});
  send("Three");
  send("Four");
  EXPECT_THAT(queued(), ElementsAre("Two", "Three", "Four"));
  EXPECT_EQ(saved()[1].threads[0].queuedPrompts.size(), 3u);

  client().finishes();
  EXPECT_EQ(client().prompts.size(), 1u) << "not within the end of the turn before: it would nest";
  main.runReady();
  EXPECT_THAT(ran(), ElementsAre("One", "Two"));
  EXPECT_EQ(thread().entries.back().attachments.size(), 1u);
  EXPECT_EQ(clients.size(), 1u) << "the client is kept";
  EXPECT_THAT(client().prompts.back(), ::testing::HasSubstr("- @/a.txt"));
  app->selected().runNextQueuedPrompt();
  EXPECT_THAT(queued(), ElementsAre("Three", "Four")) << "not while it is busy";

  client().fails(AgentError("broken pipe"));
  main.runReady();
  EXPECT_THAT(queued(), ElementsAre("Three", "Four"));
  EXPECT_THAT(ran(), ElementsAre("One", "Two"));
  app->selected().runNextQueuedPrompt();
  main.runReady();
  client().opens("again");
  main.runReady();
  finish();
  EXPECT_THAT(ran(), ElementsAre("One", "Two", "Three", "Four"));
  app->selected().stopWorking();
  EXPECT_THAT(queued(), IsEmpty());
}

TEST_F(PromptQueueTest, WaitsAfterAStopAndARestartForTheUserOrTheNextSuccess) {
  start();
  work("One");
  send("Two");
  app->selected().stopWorking();
  main.runReady();
  EXPECT_THAT(queued(), ElementsAre("Two"));
  stop();
  clients.clear();
  restart();
  main.runReady();
  ASSERT_EQ(model->selection.key(), key);
  EXPECT_THAT(queued(), ElementsAre("Two"));
  EXPECT_THAT(clients, IsEmpty()) << "nothing starts by itself";
  work("Three");
  finish();
  EXPECT_THAT(ran(), ElementsAre("One", "Three", "Two"));
}

TEST_F(PromptQueueTest, GoesOnBehindAHandOffAndInAConversationThatIsNotSelected) {
  others = {AgentProvider::codex};
  start();
  work("One");
  send("Two");
  const ThreadExecutionKey worked = key;
  model->operations->newThread(key.workspaceID);
  client().fails(AgentError("429 rate limit reached"));
  main.runReady();
  ASSERT_EQ(clients.size(), 2u);
  EXPECT_THAT(queued(), ElementsAre("Two")) << "the run goes on";
  client().opens("codex");
  main.runReady();
  finish();
  EXPECT_NE(model->selection.key(), worked);
  EXPECT_THAT(ran(), ElementsAre("One", "Two"));
}

TEST_F(PromptQueueTest, StoreHasThePromptInOneOfItsPlacesAtEveryMoment) {
  HeldExecutor checkpoints;  // take for ever
  checkpoints.isHeld = true;
  backgroundExecutor = &checkpoints;
  start();
  model->queue.enqueuePrompt("Two", {}, key);
  app->selected().runNextQueuedPrompt();
  main.runReady();
  const auto stored = saved()[1].threads[0];
  EXPECT_THAT(stored.queuedPrompts, IsEmpty());
  ASSERT_EQ(stored.entries.size(), 1u);
  EXPECT_EQ(stored.entries[0].text, "Two");
}

TEST_F(PromptQueueTest, IsEdited) {
  start();
  for (const char* each : {"a", "b", "c"}) model->queue.enqueuePrompt(each, {}, key);
  main.advance(std::chrono::seconds(5));
  const Date before = thread().updatedAt;
  app->selected().moveQueuedPromptToFront(id(0));
  EXPECT_EQ(thread().updatedAt, before) << "the first is there already";
  app->selected().moveQueuedPromptToFront(id(2));
  EXPECT_THAT(queued(), ElementsAre("c", "a", "b"));
  EXPECT_EQ(thread().updatedAt, main.now());
  app->selected().removeQueuedPrompt(id(1));
  app->selected().removeQueuedPrompt(Uuid::random());
  EXPECT_THAT(queued(), ElementsAre("c", "b"));
  EXPECT_EQ(saved()[1].threads[0].queuedPrompts.size(), 2u);
  app->selected().clearQueuedPrompts();
  EXPECT_THAT(queued(), IsEmpty());
  EXPECT_THAT(saved()[1].threads[0].queuedPrompts, IsEmpty());
}

TEST_F(PromptQueueTest, RunThatANewerPromptReplacesHasEnded) {
  start();
  work("One");
  app->selected().sendNow("Two", {});
  main.runReady();
  EXPECT_EQ(thread().runs[0].status, RunRecordStatus::cancelled);
  EXPECT_EQ(thread().runs[0].statusMessage, "Replaced by a newer prompt.");
  EXPECT_EQ(clients[0]->stops, 1);
}

}  // namespace vantrell::tests
