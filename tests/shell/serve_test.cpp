// Several processes and one state: the program that serves, a long run, and commands beside them.
#include "shell/program_fixture.h"

namespace vantrell::tests {
namespace {

using namespace std::chrono_literals;

class Serve : public TerminalProgram {
 protected:
  std::shared_ptr<Record> serve() {
    auto record = start(vantrell({"serve"}));
    awaitError(*record, "gateway: ");
    return record;
  }
  void awaitError(const Record& record, std::string_view text) {
    EXPECT_TRUE(main_.runUntil([&] { return record.error.contains(text); })) << record.error;
  }
  static void signal(const Record& record, int number) {
    ::kill(static_cast<pid_t>(record.process->processID()), number);
  }
  std::string threadOfRunning() {
    for (const auto& task : objects({"tasks"})) {
      if (json::textOr(task, "status", "") == "running") return json::textOr(task, "threadID", "");
    }
    return "";
  }
  std::string firstTask() {
    const auto tasks = objects({"tasks"});
    return tasks.empty() ? "" : json::textOr(tasks[0], "threadID", "");
  }
};

TEST_F(Serve, CarriesOutEveryCommandAsIfItRanAlone) {
  const auto server = serve();
  const auto done = runPracticeWith("SAY:from a pipe", {"-"});
  EXPECT_EQ(code(done), 0) << done->error;
  EXPECT_TRUE(done->output.contains("\nfrom a pipe\n")) << done->output;
  const auto id = firstTask();
  const struct {
    std::vector<std::string> words;
    int status;
    std::string output, error;
  } cases[] = {
      {{"rename", id, "Another"}, 0, "Another", ""},
      {{"show", id}, 0, "from a pipe", ""},
      {{"queue", "add", id, "SAY:queued"}, 0, "SAY:queued", ""},
      {{"queue", "run", id}, 0, "\nqueued\n", ""},
      {{"settings", "workflow", "plan"}, 0, "workflow is plan now.", ""},
      {{"settings", "workflow"}, 0, "plan", ""},
      {{"run", "--practice", "--json", "SAY:x"}, 0, "\"event\":\"run\"", ""},
      {{"show", "ffffffff"}, 2, "", "There is no task"},
      {{"run", "--practice", "--workflow", "review", "FAIL:no"}, 1, "", ""},
      {{"run"}, 2, "", "prompt"},
      {{"gateway", "keys", "create", "site", "--project", ".", "--provider", "local"},
       0,
       "vtl_",
       "only time"},
      {{"serve"},
       1,
       "",
       "already running (process " + std::to_string(server->process->processID()) + ")"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.words.front() + " " + each.words.back());
    auto words = each.words;
    if (words[0] == "queue" && words[1] == "run") words.push_back("--practice");
    const auto ended = does(words);
    EXPECT_EQ(code(ended), each.status) << ended->output << ended->error;
    EXPECT_TRUE(ended->output.contains(each.output)) << ended->output;
    EXPECT_TRUE(ended->error.contains(each.error)) << ended->error;
  }
  signal(*server, SIGTERM);
  EXPECT_EQ(code(finish(server)), 0);
  EXPECT_TRUE(does({"show", id})->output.contains("queued")) << "all is on the disk";
  expectNothingLeft();
}

TEST_F(Serve, EachCommandHearsItsOwnSignalsOnly) {
  const auto server = serve();
  const auto first = start(practice({"SLOW:0.5"}));
  const auto second = start(practice({"SLOW:0.5"}));
  awaitOutput(*first, "tick");
  awaitOutput(*second, "tick");
  signal(*first, SIGINT);
  EXPECT_EQ(code(finish(first)), 130);
  EXPECT_TRUE(first->output.contains("Stopped by you.")) << first->output;
  const auto length = second->output.size();
  EXPECT_TRUE(main_.runUntil([&] { return second->output.size() > length; })) << "it goes on";
  signal(*second, SIGKILL);  // its terminal is gone
  finish(second);
  EXPECT_TRUE(main_.runUntil([&] {
    const auto tasks = objects({"tasks"});
    return std::ranges::none_of(tasks, [](const JsonObject& task) {
      return json::textOr(task, "status", "") == "running";
    });
  })) << "a command ends with its caller";
  signal(*server, SIGINT);
  EXPECT_EQ(code(finish(server)), 0);
  expectNothingLeft();
}

TEST_F(Serve, CommandEndsByTheSignalThatItDoesNotHearAndIgnoresWhatItsCallerIgnores) {
  const auto server = serve();
  auto waiting = vantrell({"settings", "set", "tasklet-webhook"});
  waiting.standardInput = ProcessOptions::Input::pipe;
  for (const bool isIgnored : {true, false}) {
    if (isIgnored) {
      waiting.arguments.insert(waiting.arguments.begin(),
                               {"-c", "trap '' HUP; exec \"$@\"", "sh", waiting.executable});
      waiting.executable = "/bin/sh";
    } else {
      waiting = vantrell({"settings", "set", "tasklet-webhook"});
      waiting.standardInput = ProcessOptions::Input::pipe;
    }
    const auto command = start(waiting);
    EXPECT_TRUE(main_.runUntil([&] {
      main_.post([] {});
      return processesOf("vantrell").size() == 2;
    }));
    signal(*command, SIGHUP);
    if (isIgnored) command->process->closeInput();
    finish(command);
    EXPECT_EQ(command->exits.at(0).code(), isIgnored ? 2 : 128 + SIGHUP) << command->error;
  }
  signal(*server, SIGTERM);
  finish(server);
}

TEST_F(Serve, InstallEndsWhateverTheServiceManagerSays) {
  const auto installed = does({"serve", "--install"});
  EXPECT_TRUE(files::exists(home / "config/systemd/user/vantrell.service")) << installed->error;
  does({"serve", "--uninstall"});
  EXPECT_FALSE(files::exists(home / "config/systemd/user/vantrell.service"));
}

TEST_F(Serve, EndsTheCommandsOfOthersWhenItIsStopped) {
  const auto server = serve();
  const auto other = start(practice({"SLOW:0.5"}));
  awaitOutput(*other, "tick");
  signal(*server, SIGTERM);
  EXPECT_EQ(code(finish(other)), 128 + SIGTERM) << other->output << other->error;
  EXPECT_EQ(code(finish(server)), 0);
  EXPECT_EQ(json::textOr(objects({"tasks"})[0], "status", ""), "cancelled");
  expectNothingLeft();
}

TEST_F(Serve, OwnerThatIsKilledIsToldAndNoObstacle) {
  const auto server = serve();
  const auto other = start(practice({"SLOW:0.5"}));
  awaitOutput(*other, "tick");
  signal(*server, SIGKILL);
  EXPECT_EQ(code(finish(other)), 1);
  EXPECT_TRUE(other->error.contains("has ended before it.")) << other->error;
  finish(server);
  EXPECT_EQ(code(runPractice({"SAY:alone"})), 0);
  expectNothingLeft();
}

TEST_F(Serve, LongRunCarriesOutCommandsAndWaitsForThem) {
  const auto first = start(practice({"SLOW:0.5"}));
  awaitOutput(*first, "tick");
  EXPECT_EQ(json::textOr(objects({"tasks"})[0], "status", ""), "running");
  EXPECT_EQ(code(does({"rename", firstTask(), "Another"})), 0);
  EXPECT_EQ(code(runPractice({"SAY:me too"})), 0);
  const auto refused = runPractice({"--task", threadOfRunning(), "SAY:no"});
  EXPECT_EQ(code(refused), 2);
  EXPECT_TRUE(refused->error.contains("Another terminal works on this task.")) << refused->error;
  const auto second = start(practice({"SLOW:0.5"}));
  awaitOutput(*second, "tick");
  signal(*first, SIGINT);
  awaitError(*first, "Commands of other terminals are at work here");
  EXPECT_TRUE(first->exits.empty());
  signal(*second, SIGINT);
  EXPECT_EQ(code(finish(second)), 130);
  EXPECT_EQ(code(finish(first)), 130);
  expectNothingLeft();
}

}  // namespace
}  // namespace vantrell::tests
