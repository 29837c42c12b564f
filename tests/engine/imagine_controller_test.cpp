#include "engine/imagine/imagine_controller.h"

#include <gmock/gmock.h>

#include "engine/core/friendly_error.h"
#include "support/engine_fixture.h"
#include "support/environment.h"
#include "support/held_executor.h"

namespace vantrell::tests {
namespace {

using ::testing::ElementsAre;
using State = ConnectionState;

class ImagineControllerTest : public EngineFixture {
 protected:
  ImagineControllerTest() {
    others.insert(AgentProvider::grok);
    start();
  }

  ImagineController& imagine() { return *model->imagine; }
  void generate(const std::string& prompt, ImagineKind kind = ImagineKind::image) {
    imagine().generateImagine(prompt, kind);
  }
  /// Up to the point where the agent is at work.
  void work(const std::string& prompt, ImagineKind kind = ImagineKind::image) {
    generate(prompt, kind);
    client().opens("media");
  }
  void names(const std::string& path) {
    client().updates({{"sessionUpdate", "tool_call_update"}, {"rawOutput", "Saved " + path}});
    main.runReady();
  }
  std::string library() const { return folder / "Imagine"; }
  std::optional<std::string> error() { return app->selected().errorMessage(); }
};

TEST_F(ImagineControllerTest, MakesAPictureAndServesTheNextPromptWithTheSameClient) {
  generate("  a fox \n");
  EXPECT_EQ(imagine().imagineState(), State::connecting());
  EXPECT_EQ(imagine().imagineProgress(), "Preparing image generation…");
  EXPECT_EQ(contexts.back().workspacePath, library()) << "the agent works in the library";
  EXPECT_FALSE(client().existingSession);
  client().opens("media");
  EXPECT_EQ(imagine().imagineState(), State::working());
  EXPECT_EQ(imagine().imagineProgress(), "Grok is generating an image…");
  EXPECT_THAT(client().prompts, ElementsAre("/imagine a fox"));
  client().updates({{"sessionUpdate", "tool_call"}, {"title", "image_gen"}});
  EXPECT_EQ(imagine().imagineProgress(), "image_gen");
  client().updates({{"sessionUpdate", "tool_call_update"}, {"title", ""}});
  client().updates(
      {{"sessionUpdate", "agent_thought_chunk"}, {"content", JsonObject{{"text", "hm"}}}});
  EXPECT_EQ(imagine().imagineProgress(), "image_gen");
  client().says(" Done. ");
  EXPECT_EQ(imagine().imagineProgress(), "Done.");

  const auto path = folder.file("out/fox.jpg", "pixels");
  names(path);
  names(path);
  EXPECT_EQ(imagine().imagineProgress(), "Image ready");
  ASSERT_EQ(imagine().imagineItems().size(), 1u) << "one file, named twice";
  EXPECT_EQ(imagine().imagineItems().front().prompt, "a fox");
  EXPECT_EQ(ImagineStore::peek(folder.path()), imagine().imagineItems()) << "stored at once";
  client().finishes();
  EXPECT_EQ(imagine().imagineState(), State::ready());
  EXPECT_EQ(events.back().kind, "imagine_completed");
  EXPECT_EQ(events.back().message, "Your image is ready.");

  generate("a fox in motion", ImagineKind::video);
  EXPECT_EQ(clients.size(), 1u);
  EXPECT_EQ(client().prompts.back(), "/imagine-video a fox in motion");
  EXPECT_EQ(imagine().imagineProgress(), "Grok is generating a video…");
  names(path);
  EXPECT_EQ(imagine().imagineItems().size(), 2u) << "another prompt may give the same file";
  EXPECT_EQ(imagine().imagineItems().front().kind, ImagineKind::image)
      << "the file says what it is";
  client().finishes();
  EXPECT_EQ(events.back().message, "Your video is ready.");
}

TEST_F(ImagineControllerTest, SaysThatItFinishedWhereTheAgentSaidNothing) {
  work("a fox");
  client().finishes();
  EXPECT_EQ(imagine().imagineProgress(), "Generation finished");
}

TEST_F(ImagineControllerTest, FindsAFileWhosePathComesInPieces) {
  start();
  generate("a fox");
  client().opens("media");
  const auto path = folder.file("out/red fox.jpg", "pixels");
  client().says("It's at " + path.substr(0, 4));
  client().says(path.substr(4, path.size() - 8));
  client().says(path.substr(path.size() - 4) + " now.");
  main.runReady();
  ASSERT_EQ(imagine().imagineItems().size(), 1U);
  EXPECT_EQ(folder.contentOf(imagine().imagineItems().front().localPath), "pixels");
}

TEST_F(ImagineControllerTest, NeedsAPromptAndTheProgram) {
  generate(" \n");
  EXPECT_EQ(imagine().imagineState(), State::idle());
  providers.connectors[AgentProvider::grok].isAvailable = [](const auto&) { return false; };
  EXPECT_EQ(imagine().generateImagine("a fox", ImagineKind::image).error().sentence,
            "Install and log in to Grok Build before using Imagine.");
  EXPECT_EQ(model->runtimes->installStatus(), RuntimeInstallStatus::missing());
  EXPECT_TRUE(clients.empty());
}

TEST_F(ImagineControllerTest, NeedsALibrary) {
  folder.file("Imagine", "a file in its place");
  generate("a fox");
  EXPECT_EQ(imagine().imagineState(), State::failed("Could not create the Imagine library."));
  EXPECT_TRUE(clients.empty());
}

TEST_F(ImagineControllerTest, FailsWithAdvice) {
  generate("a fox");
  client().failsToOpen("not authenticated");
  EXPECT_EQ(imagine().imagineState(), State::failed("not authenticated"));
  EXPECT_EQ(error(), friendlyError("not authenticated", AgentProvider::grok));
  work("a fox");
  EXPECT_EQ(clients.size(), 2u);
  EXPECT_EQ(clients.front()->stops, 1);
  client().fails(AgentError("quota"));
  EXPECT_EQ(imagine().imagineState(), State::failed("quota"));
  EXPECT_EQ(imagine().imagineProgress(), "Generation failed");
  EXPECT_EQ(events.back().kind, "imagine_attention");
  EXPECT_EQ(events.back().message, error());
}

TEST_F(ImagineControllerTest, TellsOfAClientThatDiesAndTakesAnother) {
  work("a fox");
  client().onUnexpectedTermination("Grok exited with status 3.");
  EXPECT_EQ(imagine().imagineState(), State::failed("Grok exited with status 3."));
  EXPECT_EQ(error(), "Grok exited with status 3.");
  imagine().cancelImagine();
  generate("a fox");
  EXPECT_EQ(clients.size(), 2u) << "one that is dead serves no prompt, not even after a stop";
}

TEST_F(ImagineControllerTest, NewPromptWhileItWorksTakesTheClientsPlace) {
  work("a fox");
  const auto first = clients.front();
  first->onPermissionRequest({1, "Draw", "", {}});
  generate("an owl");
  EXPECT_EQ(first->stops, 1);
  EXPECT_EQ(app->selected().permissionRequest(), nullptr) << "its question went with it";
  EXPECT_EQ(imagine().imagineState(), State::connecting());
  first->says("late");
  first->promptCompletions.back()(JsonObject{});
  first->onUnexpectedTermination("late");
  EXPECT_EQ(imagine().imagineState(), State::connecting());
  EXPECT_EQ(imagine().imagineProgress(), "Preparing image generation…");
}

TEST_F(ImagineControllerTest, CancelKeepsWhatWasCopiedAndIsNoSuccess) {
  work("a fox");
  names(folder.file("fox.png", "1"));
  imagine().cancelImagine();
  EXPECT_EQ(client().cancels, 1);
  EXPECT_EQ(imagine().imagineState(), State::ready());
  EXPECT_EQ(imagine().imagineProgress(), "Stopped");
  EXPECT_EQ(imagine().imagineItems().size(), 1u);
  const auto told = events.size();

  // The agent takes one prompt at a time: the next one waits for the end of the stopped one.
  generate("an owl");
  EXPECT_EQ(imagine().imagineState(), State::working());
  EXPECT_EQ(client().prompts.size(), 1u);
  client().finishes();
  EXPECT_EQ(events.size(), told) << "nobody hears that the stopped one is ready";
  EXPECT_EQ(client().prompts.back(), "/imagine an owl");
  client().finishes();
  EXPECT_EQ(events.back().message, "Your image is ready.");
}

TEST_F(ImagineControllerTest, WhatAStoppedAgentStillSaysBelongsToTheStoppedPrompt) {
  work("a fox");
  imagine().cancelImagine();
  client().says("late");
  EXPECT_EQ(imagine().imagineProgress(), "Stopped");
  generate("an owl", ImagineKind::video);
  client().says("later");
  EXPECT_EQ(imagine().imagineProgress(), "Preparing video generation…");
  names(folder.file("fox.png", "1"));
  EXPECT_EQ(imagine().imagineItems().front().prompt, "a fox");
  client().finishes();
  EXPECT_EQ(client().prompts.back(), "/imagine-video an owl");
  EXPECT_EQ(imagine().imagineAnswer(), "");
}

TEST_F(ImagineControllerTest, AgentThatDoesNotEndWhatWasStoppedIsReplaced) {
  const struct {
    const char* what;
    bool isOpen;
  } cases[] = {{"at work", true}, {"connecting", false}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    imagine().reset();
    generate("a fox");
    if (each.isOpen) client().opens("media");
    const auto first = clients.back();
    imagine().cancelImagine();
    generate("an owl");
    main.advance(AgentSession::stopTimeout);
    EXPECT_NE(clients.back(), first);
    EXPECT_EQ(first->stops, 1);
    client().opens("media");
    EXPECT_THAT(client().prompts, ElementsAre("/imagine an owl"));
    main.advance(AgentSession::stopTimeout);
    EXPECT_EQ(client().stops, 0) << "it is at work, and takes its time";
  }
}

TEST_F(ImagineControllerTest, CopiesFewFilesAtOnceAndNoneBehindItsEnd) {
  HeldExecutor copies;
  copies.isHeld = true;
  stop();
  backgroundExecutor = &copies;
  start();
  work("foxes");
  const auto named = [this](const char* name) { return folder.file(name, name); };
  names(named("a.png") + "\n" + named("b.png") + "\n" + named("c.png"));
  client().finishes();
  ASSERT_EQ(copies.held.size(), 2u);
  copies.held[0]();
  main.runReady();
  EXPECT_EQ(copies.held.size(), 3u);
  EXPECT_EQ(imagine().imagineItems().size(), 1u);
  EXPECT_TRUE(imagine().hasUnfinishedWork());
  const auto files = folder.names("Imagine");
  stop();
  copies.held[1]();
  EXPECT_EQ(folder.names("Imagine"), files) << "nobody would list it";
}

TEST_F(ImagineControllerTest, SaysWhyAFileCouldNotBeCopied) {
  work("a fox");
  names(folder / "missing.png");
  EXPECT_EQ(imagine().imagineCopyError(), "");
  std::filesystem::remove_all(library());
  folder.file("Imagine", "a file in its place");
  names(folder.file("fox.png", "1"));
  EXPECT_TRUE(imagine().imagineItems().empty());
  EXPECT_TRUE(imagine().imagineCopyError().contains(library())) << imagine().imagineCopyError();
}

TEST_F(ImagineControllerTest, CancelBeforeTheSessionIsOpenSendsNothing) {
  generate("a fox");
  imagine().cancelImagine();
  generate("an owl");
  EXPECT_EQ(imagine().imagineState(), State::connecting());
  imagine().cancelImagine();
  client().opens("media");
  EXPECT_TRUE(client().prompts.empty());
  generate("a hare");
  EXPECT_THAT(client().prompts, ElementsAre("/imagine a hare"));
  EXPECT_EQ(clients.size(), 1u);
}

TEST_F(ImagineControllerTest, DeletedItemGoesWithItsFileOrWithoutIt) {
  Environment environment;
  environment.set("XDG_DATA_HOME", folder / "data");
  work("a fox");
  names(folder.file("fox.png", "1"));
  names(folder.file("owl.png", "2"));
  const auto items = imagine().imagineItems();
  restart();
  EXPECT_EQ(imagine().imagineItems(), items);
  EXPECT_EQ(client().stops, 1);
  imagine().deleteImagineItem(items[0].id);
  EXPECT_FALSE(files::exists(items[0].localPath));
  std::filesystem::remove(items[1].localPath);
  imagine().deleteImagineItem(items[1].id);
  EXPECT_TRUE(imagine().imagineItems().empty());
  EXPECT_TRUE(ImagineStore::peek(folder.path()).empty());
}

}  // namespace
}  // namespace vantrell::tests
