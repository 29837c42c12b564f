// The media generator with a real child process in Grok's place, over real pipes.
#include <gmock/gmock.h>

#include "engine/imagine/imagine_controller.h"
#include "runtimes/acp/acp_client.h"
#include "runtimes/catalog/locators.h"
#include "support/acp_agent_script.h"
#include "support/engine_fixture.h"

namespace vantrell::tests {
namespace {

class ImaginePipes : public EngineFixture {
 protected:
  ImaginePipes() {
    others.insert(AgentProvider::grok);
    backgroundExecutor = &pool_;
    providers.connectors[AgentProvider::grok].makeClient =
        [this](const ProviderConnectorContext& context) {
          const auto script =
              folder.file("script" + std::to_string(++clientCount_), scripts_.at(0).text());
          scripts_.erase(scripts_.begin());
          return ACPClient::make({.executable = AgentScriptText::program(),
                                  .workspacePath = context.workspacePath,
                                  .processArguments = {script},
                                  .processEnvironment = GrokLocator::augmentedEnvironment(),
                                  .runtimeName = "Grok"},
                                 main, pool_);
        };
  }
  ~ImaginePipes() override {
    stop();
    EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20)));
  }

  ImagineController& imagine() { return *model->imagine; }
  bool isOver() { return !imagine().imagineState().isBusy() && !imagine().hasUnfinishedWork(); }
  void generate(const std::string& prompt, ImagineKind kind = ImagineKind::image) {
    imagine().generateImagine(prompt, kind);
  }
  void await(const std::function<bool()>& condition) {
    EXPECT_TRUE(main.runUntil(condition))
        << imagine().imagineProgress() << imagine().imagineState().text;
  }
  /// Of every item, newest first: "prompt: content".
  std::vector<std::string> made() {
    std::vector<std::string> all;
    for (const auto& item : imagine().imagineItems()) {
      all.push_back(item.prompt + ": " + folder.contentOf(item.localPath));
    }
    return all;
  }
  static ACPAgentScript opened() { return ACPAgentScript().openSession(); }
  /// With an empty library.
  void startAnew() {
    stop();
    std::filesystem::remove_all(folder / "Imagine");
    start();
  }

  /// Of the clients to come, in turn.
  std::vector<ACPAgentScript> scripts_;

 private:
  int clientCount_ = 0;
  BackgroundPool pool_{2};
};

TEST_F(ImaginePipes, FilesAreFoundHoweverTheyAreNamed) {
  const auto fox = folder.file("out/red fox.png", "fox");
  const auto half = fox.size() - 7;
  const std::string update =
      R"(send {"jsonrpc":"2.0","method":"session/update","params":{"sessionId":"s1","update":)";
  const auto tool = [&](const Json& output) {
    return update +
           json::write(JsonObject{
               {"sessionUpdate", "tool_call_update"}, {"toolCallId", "t"}, {"rawOutput", output}}) +
           "}}";
  };
  // Must be decoded for its path to be seen.
  const auto document = "{\"file\":\"" + files::parent(fox) + "\\/red\\u0020fox.png\"}";
  const auto encoded = files::parent(fox) + "/red%20fox.png";
  const struct {
    const char* what;
    ACPAgentScript naming;
  } cases[] = {
      {"prose", ACPAgentScript().say("Saved to " + fox + ", enjoy.")},
      {"twice", ACPAgentScript().say(fox).line(tool("At " + fox))},
      {"JSON", ACPAgentScript().line(tool(JsonObject{{"files", Json::Array{fox}}}))},
      {"JSON in a text", ACPAgentScript().line(tool(document))},
      {"in two pieces",
       ACPAgentScript().say("It's at " + fox.substr(0, half)).say(fox.substr(half) + " now.")},
      {"in three",
       ACPAgentScript().say(fox.substr(0, 3)).say(fox.substr(3, half)).say(fox.substr(3 + half))},
      {"a file URL, and the path",
       ACPAgentScript().line(tool(JsonObject{{"uri", "file://" + encoded}})).say(fox)},
  };
  for (const auto& each : cases) {
    scripts_.push_back(opened()
                           .expect(R"("text":"/imagine-video a fox")")
                           .line(each.naming.text())
                           .endTurn()
                           .hang());
  }
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    startAnew();
    generate("a fox", ImagineKind::video);
    await([this] { return isOver(); });
    ASSERT_EQ(made(), std::vector<std::string>{"a fox: fox"});
    EXPECT_EQ(imagine().imagineItems().front().kind, ImagineKind::image)
        << "the file says what it is";
    EXPECT_EQ(events.back().message, "Your video is ready.");
  }
}

}  // namespace
}  // namespace vantrell::tests
