// Pictures and films through the whole program, with a real child process in Grok's place.
#include "program_fixture.h"
#include "support/acp_agent_script.h"
#include "support/git_repository.h"

namespace vantrell::tests {
namespace {

class ImagineCommand : public TerminalProgram {
 protected:
  /// Puts a program where Grok lies, which follows the script.
  void install(const ACPAgentScript& script) const {
    TerminalProgram::install(".grok/bin/grok", "exec '" + ACPAgentScript::program() + "' '" +
                                                   home.file("script", script.text()) + "'");
  }
  std::shared_ptr<Record> imagine(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "imagine");
    return does(std::move(arguments));
  }
  std::string library() const { return home / "data/vantrell/Imagine"; }
};

TEST_F(ImagineCommand, MakesAPictureWhichIsListedAndGoesToTheTrash) {
  const auto made = home.file("out/red fox.PNG", "pixels");
  install(ACPAgentScript()
              .openSession()
              .expect(R"("text":"/imagine a red fox")")
              .request(7, "session/request_permission",
                       R"({"sessionId":"s1","toolCall":{"title":"Draw"},"options":[)"
                       R"({"optionId":"yes","name":"Allow","kind":"allow_once"}]})")
              .expect(R"("optionId":"yes")")
              .say("Saved to " + made + ".")
              .say("Again: " + made)
              // The id of the prompt, which is the client's third request.
              .line(R"(send {"jsonrpc":"2.0","id":3,"result":{"stopReason":"end_turn"}})")
              .line("hang"));
  const auto done = imagine({"image", " a red fox ", "--answer", "allow_once", "--json"});
  ASSERT_EQ(code(done), 0) << done->output << done->error;
  std::vector<std::string> kinds;
  JsonObject item;
  for (const auto& event : events(done)) {
    if (kinds.empty() || kinds.back() != kindOf(event)) kinds.push_back(kindOf(event));
    if (const auto* told = json::object(event, "item")) item = *told;
  }
  EXPECT_EQ(kinds.front(), "progress");
  EXPECT_EQ(std::ranges::count(kinds, "item"), 1);
  EXPECT_EQ(kinds.back(), "end");
  const auto copy = json::textOr(item, "localPath", "");
  EXPECT_EQ(files::parent(copy), library());
  EXPECT_EQ(TemporaryFolder::contentOf(copy), "pixels");
  EXPECT_EQ(json::textOr(item, "prompt", ""), "a red fox");
  expectNothingLeft();

  const auto id = json::textOr(item, "id", "").substr(0, 6);
  EXPECT_TRUE(imagine({})->output.contains("a red fox"));
  EXPECT_EQ(imagine({"path", id})->output, copy + "\n");
  EXPECT_EQ(code(imagine({"remove", id})), 0);
  EXPECT_FALSE(files::exists(copy));
  EXPECT_EQ(home.names("data/Trash/files"), std::set<std::string>{files::lastComponent(copy)});
  EXPECT_EQ(code(imagine({"path", id})), 2);
  EXPECT_TRUE(files::exists(made));
}

TEST_F(ImagineCommand, InterruptStopsTheAgentAndKeepsWhatWasMade) {
  const auto made = home.file("out/fox.png", "pixels");
  install(ACPAgentScript()
              .openSession()
              .expectPrompt()
              .say(made)
              .expect(R"("method":"session/cancel")")
              .line(R"(send {"jsonrpc":"2.0","id":3,"result":{"stopReason":"cancelled"}})")
              .line("hang"));
  auto options = vantrell({"imagine", "video", "a fox", "--json"});
  options.standardInput = ProcessOptions::Input::null;
  const auto record = start(std::move(options));
  awaitOutput(*record, "\"item\"");
  ::kill(static_cast<pid_t>(record->process->processID()), SIGINT);
  finish(record);
  EXPECT_EQ(code(record), 130);
  EXPECT_EQ(json::textOr(events(record).back(), "outcome", ""), "stopped");
  EXPECT_TRUE(imagine({})->output.contains("image")) << "what the file is, not what was asked for";
  expectNothingLeft();
}

TEST_F(ImagineCommand, SaysWhyThereIsNoPicture) {
  const struct {
    const char* what;
    ACPAgentScript script;
    std::string said;
  } cases[] = {
      {"a death in the turn",
       ACPAgentScript().openSession().expectPrompt().line("error out of paint\\n").line("exit 3"),
       "✗ out of paint"},
      {"a death at the start", ACPAgentScript().line("error no display\\n").line("exit 4"),
       "✗ no display"},
      {"an error",
       ACPAgentScript().openSession().expectPrompt().error("quota exceeded").line("hang"),
       "quota exceeded"},
      {"a turn without a file",
       ACPAgentScript()
           .openSession()
           .expectPrompt()
           .say("I do not paint.")
           .line(R"(send {"jsonrpc":"2.0","id":3,"result":{"stopReason":"end_turn"}})")
           .line("hang"),
       "I do not paint."},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    install(each.script);
    const auto done = imagine({"image", "a fox"});
    EXPECT_EQ(code(done), 1);
    EXPECT_TRUE(done->output.contains(each.said)) << done->output << done->error;
    expectNothingLeft();
  }
  std::filesystem::remove_all(home / ".grok");
  const auto done = imagine({"image", "a fox"});
  EXPECT_EQ(code(done), 1);
  EXPECT_TRUE(done->output.contains("Install and log in to Grok Build before using Imagine."))
      << done->output;
}

TEST_F(ImagineCommand, ArtifactsOfATaskAreListed) {
  // The project lies below the root of its repository, from which git names what has changed.
  Environment isolated;
  isolated.set("GIT_CONFIG_GLOBAL", "/dev/null");
  home.file("project/staged.txt", "");
  GitRepository::git(home.path(), {"init", "--quiet"});
  GitRepository::git(home.path(), {"add", "project/staged.txt"});
  ASSERT_EQ(code(runPractice({"--answer", "allow_once", "WRITE:notes.txt=hello"})), 0);
  const auto task = threadOf(runPractice({"--json", "--answer", "allow_once", "WRITE:b.txt=1"}));
  auto options = vantrell({"artifacts", task, "--json"});
  options.standardInput = ProcessOptions::Input::null;
  const auto done = run(std::move(options));
  EXPECT_EQ(code(done), 0) << done->error;
  std::vector<std::string> shown;
  for (const auto& each : events(done)) {
    shown.push_back(json::textOr(each, "source", "") + " " + json::textOr(each, "displayPath", ""));
  }
  EXPECT_EQ(shown,
            (std::vector<std::string>{"agent b.txt", "changed notes.txt", "changed staged.txt"}));
}

}  // namespace
}  // namespace vantrell::tests
