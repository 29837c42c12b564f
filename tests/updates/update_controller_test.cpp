// The rules of when an update may interrupt work, over a framework that a test plays by hand.
#include "updates/update_controller.h"

#include <gtest/gtest.h>

#include "platform/queues/manual_main_queue.h"

namespace vantrell::tests {
namespace {

using namespace std::chrono_literals;
using Phase = HostUpdatePhase;
using Decision = HostUpdateDecision;

struct PlayedFramework final : UpdateFramework {
  std::expected<void, std::string> start() override {
    ++starts;
    return canStart ? std::expected<void, std::string>() : std::unexpected("It cannot start.");
  }
  bool canCheckForUpdates() const override { return !isBusy; }
  void checkForUpdates() override { ++checks; }
  void resetUpdateCycleAfterShortDelay() override { ++resets; }
  bool canStart = true, isBusy = false;
  int starts = 0, checks = 0, resets = 0;
};

class UpdateControl : public testing::Test {
 protected:
  void make(const std::string& feed = "https://example.invalid/appcast.xml") {
    control = std::make_shared<UpdateController>(main, *defaults, "1.0", feed);
    control->connect(framework, {.activity = [this] { return activity; },
                                 .prepareForImmediateUpdate =
                                     [this] {
                                       ++preparations;
                                       return isStored;
                                     },
                                 .statusChanged = [this](const auto&) { ++changes; }});
  }
  const RemoteHostUpdateStatus& status() const { return control->remoteStatus(); }
  void find(bool isInformationOnly = false) {
    control->updateFound(
        {.version = "2", .displayVersion = "2.0", .isInformationOnly = isInformationOnly},
        [this](UpdateChoice choice) { found = choice; });
  }
  void becomeReady() {
    control->readyToInstall([this](UpdateChoice choice) { ready = choice; });
  }

  ManualMainQueue main;
  std::unique_ptr<UserDefaults> defaults = UserDefaults::inMemory();
  std::shared_ptr<PlayedFramework> framework = std::make_shared<PlayedFramework>();
  UpdateActivitySummary activity;
  bool isStored = true;
  int preparations = 0, changes = 0;
  std::optional<UpdateChoice> found, ready;
  std::shared_ptr<UpdateController> control;
};

TEST_F(UpdateControl, TakesOnlyAnHttpsFeedAndKeepsWhatWasTyped) {
  const struct {
    std::string text;
    bool isConfigured;
  } cases[] = {{"  https://a.example/appcast.xml\n", true},
               {"HTTPS://a.example", true},
               {"http://a.example/appcast.xml", false},
               {"https:///appcast.xml", false},
               {"", false},
               {"a feed", false}};
  make();
  for (const auto& each : cases) {
    control->updateFeedURL(each.text);
    EXPECT_EQ(control->isConfigured(), each.isConfigured) << each.text;
    EXPECT_EQ(defaults->text(UpdateController::feedKey), control->feedURL());
  }
  EXPECT_EQ(control->statusMessage(), "Add an HTTPS appcast URL to enable updates.");
  control->updateFeedURL("http://a.example/appcast.xml");
  control->requestUpdate();
  EXPECT_EQ(status().phase, Phase::failed);
  EXPECT_EQ(status().label, "Updater unavailable");
  EXPECT_EQ(status().message, "Enter a valid HTTPS appcast URL first.");
  EXPECT_EQ(framework->checks, 0);
}

TEST_F(UpdateControl, StartsOnceAndSaysWhyItCannot) {
  framework->canStart = false;
  make();
  EXPECT_EQ(status().message, "It cannot start.");
  control->requestUpdate();
  EXPECT_EQ(framework->checks, 0);
  EXPECT_EQ(status().label, "Updater unavailable");
  framework->canStart = true;
  control->requestUpdate();
  control->requestUpdate();
  EXPECT_EQ(framework->starts, 3);
  EXPECT_EQ(framework->checks, 2);
  framework->isBusy = true;
  control->requestUpdate();
  EXPECT_EQ(status().label, "Updater busy");
}

TEST_F(UpdateControl, AsksOnlyWhereWorkIsUnderWay) {
  constexpr std::string_view question =
      "Active model work will be interrupted when vantrell relaunches.";
  const struct {
    UpdateActivitySummary activity;
    std::string rest;  // after the question; "-": there is none
  } cases[] = {{{0, 3}, "-"},
               {{1, 0}, ""},
               {{2, 1}, " 1 queued task is safely persisted."},
               {{1, 2}, " 2 queued tasks are safely persisted."}};
  for (const auto& each : cases) {
    activity = each.activity;
    framework->checks = 0;
    make();
    control->requestUpdate();
    const bool asks = each.rest != "-";
    EXPECT_EQ(status().requiresDecision, asks);
    EXPECT_EQ(framework->checks, asks ? 0 : 1);
    if (!asks) continue;
    EXPECT_EQ(status().phase, Phase::waiting);
    EXPECT_EQ(status().label, "Mac is actively working");
    EXPECT_EQ(status().message, std::string(question) + each.rest);
    EXPECT_EQ(status().activeWorkCount, activity.activeWorkCount);
    EXPECT_EQ(status().queuedTaskCount, activity.queuedTaskCount);
  }
}

TEST_F(UpdateControl, EachDecisionBeforeTheCheck) {
  activity = {1, 0};
  make();
  control->resolveSafetyDecision(Decision::update_anyway);
  EXPECT_EQ(preparations, 0) << "no question is open";
  control->requestUpdate();
  control->resolveSafetyDecision(Decision::not_now);
  EXPECT_EQ(status().phase, Phase::idle);
  EXPECT_EQ(status().label, "Mac update postponed");
  control->requestUpdate();
  control->resolveSafetyDecision(Decision::update_anyway);
  EXPECT_EQ(preparations, 1);
  EXPECT_EQ(framework->checks, 1);

  control->requestUpdate();
  control->resolveSafetyDecision(Decision::wait_until_idle);
  EXPECT_TRUE(status().waitingUntilIdle);
  EXPECT_FALSE(status().requiresDecision);
  const auto before = changes;
  control->resolveSafetyDecision(Decision::wait_until_idle);
  main.advance(1h);
  EXPECT_EQ(changes, before);
  EXPECT_EQ(framework->checks, 1);
  activity = {};
  main.advance(1s);
  EXPECT_EQ(framework->checks, 2);

  activity = {1, 0};
  control->requestUpdate();
  control->resolveSafetyDecision(Decision::wait_until_idle);
  control->resolveSafetyDecision(Decision::update_anyway);
  EXPECT_EQ(framework->checks, 3);
  control->requestUpdate();
  control->resolveSafetyDecision(Decision::wait_until_idle);
  control->cancelWaitingUpdate();
  activity = {};
  main.advance(10s);
  EXPECT_EQ(framework->checks, 3) << "nobody waits any more";
  EXPECT_EQ(status().phase, Phase::idle);
}

TEST_F(UpdateControl, InstallsWhatWasAskedForOnly) {
  make();
  control->checkOnly();
  find();
  EXPECT_EQ(found, UpdateChoice::dismiss);
  EXPECT_EQ(status().message, "A signed update is ready to install.");
  control->requestUpdate();
  find(true);
  EXPECT_EQ(found, UpdateChoice::dismiss) << "there is nothing to install";
  find();
  EXPECT_EQ(found, UpdateChoice::install);
  EXPECT_EQ(status().label, "vantrell 2.0 available");
  control->noUpdateFound("");
  EXPECT_EQ(status().message, "This Mac already has the newest signed release.");
  EXPECT_FALSE(control->showsUpdateActivity());
  find();
  EXPECT_EQ(found, UpdateChoice::dismiss) << "the end of an update ends what was allowed";
}

TEST_F(UpdateControl, ProgressIsWithinItsBounds) {
  make();
  control->downloadStarted();
  control->receivedDownloadData(10);
  EXPECT_FALSE(status().progress) << "of an unknown length";
  control->expectedDownload(40);
  control->receivedDownloadData(10);
  EXPECT_EQ(status().progress, 0.5);
  control->receivedDownloadData(1000);
  EXPECT_EQ(status().progress, 1);
  control->extractionProgress(1.2);
  EXPECT_EQ(status().progress, 1);
}

TEST_F(UpdateControl, WorkThatBeganMeanwhileIsAskedAboutAgain) {
  const struct {
    Decision decision;
    std::optional<UpdateChoice> answer;
    Phase phase;
  } cases[] = {{Decision::update_anyway, UpdateChoice::install, Phase::ready},
               {Decision::wait_until_idle, std::nullopt, Phase::waiting},
               {Decision::not_now, UpdateChoice::dismiss, Phase::available}};
  for (const auto& each : cases) {
    SCOPED_TRACE(rawText(each.decision));
    activity = {};
    make();
    control->requestUpdate();
    find();
    activity = {1, 1};
    ready.reset();
    becomeReady();
    EXPECT_EQ(status().phase, Phase::ready);
    EXPECT_EQ(status().availableVersion, "2.0");
    EXPECT_FALSE(ready);
    control->resolveSafetyDecision(each.decision);
    EXPECT_EQ(ready, each.answer);
    EXPECT_EQ(status().phase, each.phase);
    if (each.decision != Decision::wait_until_idle) continue;
    activity = {};
    main.advance(1s);
    EXPECT_EQ(ready, UpdateChoice::install);
  }
}

TEST_F(UpdateControl, NothingIsInstalledWhileWorkCannotBeStored) {
  make();
  isStored = false;
  control->requestUpdate();
  find();
  becomeReady();
  EXPECT_EQ(ready, UpdateChoice::dismiss);
  EXPECT_EQ(status().phase, Phase::failed);
  EXPECT_TRUE(status().message.contains("could not be stored"));
}

}  // namespace
}  // namespace vantrell::tests
