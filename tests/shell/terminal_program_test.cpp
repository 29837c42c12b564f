#include <set>

#include "platform/values/uuid.h"
#include "shell/program_fixture.h"
#include "shell/terminal/session.h"

namespace vantrell::tests {
namespace {

/// Whether the process has not been told of the signal yet.
bool isPending(pid_t id, int signal) {
  std::ifstream status("/proc/" + std::to_string(id) + "/status");
  const std::string_view key = "ShdPnd:";
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with(key)) continue;
    return ((std::stoull(line.substr(key.size()), nullptr, 16) >> (signal - 1)) & 1U) != 0;
  }
  return false;
}

TEST_F(TerminalProgram, StreamsAnAnswerAndEndsWell) {
  const auto done = runPractice({"THINK:hm\nSAY:Hello there."});
  EXPECT_EQ(code(done), 0);
  EXPECT_EQ(done->error, "");
  EXPECT_TRUE(done->output.contains("\n│ hm\n\nHello there.\n\n✓ Local finished the task.\n"))
      << done->output;
  EXPECT_FALSE(done->output.contains('\x1b'));
  expectNothingLeft();
}

TEST_F(TerminalProgram, ReadsThePromptFromStandardInput) {
  const auto done = runPracticeWith("SAY:from a pipe\n", {"-"});
  EXPECT_EQ(code(done), 0);
  EXPECT_TRUE(done->output.contains("\nfrom a pipe\n")) << done->output;
}

TEST_F(TerminalProgram, AgentCannotDriveTheTerminal) {
  const auto done = runPractice({"SAY:\x1b[2J\x1b]0;owned\x07"});
  EXPECT_FALSE(done->output.contains('\x1b'));
  EXPECT_TRUE(done->output.contains("␛[2J␛]0;owned␇")) << done->output;
}

TEST_F(TerminalProgram, JsonTellsTheRunInOrderAndNothingElse) {
  const auto done = runPractice({"--json", "PLAN:a;b\nSAY:one\nTHINK:two"});
  EXPECT_EQ(code(done), 0);
  const auto all = events(done);
  ASSERT_GT(all.size(), 4U);
  EXPECT_EQ(kindOf(all.front()), "task");
  EXPECT_TRUE(Uuid::parse(json::textOr(all.front(), "workspaceID", "")));
  EXPECT_EQ(kindOf(all.back()), "run");

  std::string story;
  int plans = 0;  // several may be one when they come together
  std::map<std::string, std::string> texts;
  for (const auto& event : all) {
    if (const auto* entry = json::object(event, "entry")) {
      story += json::textOr(*entry, "kind", "?") + " ";
      texts[json::textOr(*entry, "id", "")] = json::textOr(*entry, "text", "");
      EXPECT_TRUE(json::number(*entry, "createdAt"));
    } else if (kindOf(event) == "chunk") {
      texts.at(json::textOr(event, "id", "")) += json::textOr(event, "text", "");
    } else if (const auto* run = json::object(event, "run")) {
      const auto status = json::textOr(*run, "status", "?") + " ";
      if (!story.ends_with(status)) story += status;
    } else if (kindOf(event) == "plan") {
      ++plans;
      EXPECT_EQ(json::array(event, "entries")->size(), 2U);
    }
  }
  EXPECT_EQ(story, "user starting running assistant thought completed ");
  EXPECT_GE(plans, 1);
  std::set<std::string> said;
  for (const auto& [id, text] : texts) said.insert(text);
  EXPECT_EQ(said, (std::set<std::string>{"PLAN:a;b\nSAY:one\nTHINK:two", "one", "two"}));
}

TEST_F(TerminalProgram, FailureOfTheAgentIsAFailureOfTheProgram) {
  const auto done = runPractice({"FAIL:no luck today"});
  EXPECT_EQ(code(done), 1);
  EXPECT_TRUE(done->output.contains("• Error from Local: no luck today\n")) << done->output;
  EXPECT_TRUE(done->output.contains("✗ ")) << done->output;
}

TEST_F(TerminalProgram, WrongUsageIsToldBeforeAnythingIsChanged) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"run", "--practice", "--project", "/nowhere", "x"}, "There is no folder /nowhere"},
      {{"run", "--practice", "--attach", "missing.txt", "x"}, "/project/missing.txt"},
      {{"run", "--provider", "codecs", "x"}, "codex"},
      {{"run", "--provider", "kimi", "--executable", "no-such-program", "x"}, "in PATH"},
      {{"run", "--provider", "kimi", "--executable", "./none", "x"},
       "/project/none cannot be executed"},
      {{"run", "--practice", " \n "}, "The prompt is empty"},
      {{"run", "--jsn", "x"}, "Did you mean --json?"},
  };
  for (const auto& [arguments, part] : cases) {
    const auto done = run(vantrell(arguments));
    EXPECT_EQ(code(done), 2) << part;
    EXPECT_EQ(done->output, "");
    EXPECT_TRUE(done->error.starts_with("vantrell: ")) << done->error;
    EXPECT_TRUE(done->error.contains(part)) << done->error;
  }
  EXPECT_EQ(home.names(), (std::set<std::string>{"project", "runtime"}));
}

TEST_F(TerminalProgram, WorksInNoFolderThatIsGoneOrHasNoNameInUtf8) {
  const std::pair<std::string, std::string> cases[] = {
      {"mkdir gone; cd gone; rmdir ../gone", "There is no folder"},
      {"mkdir caf\xE9; cd caf\xE9", "not valid UTF-8"},
  };
  for (const auto& [place, part] : cases) {
    auto options = practice({});
    options.arguments = {"-c", place + "; exec \"$0\" run --practice READ:/etc/hostname",
                         options.executable};
    options.executable = "/bin/bash";
    const auto done = run(options);
    EXPECT_EQ(code(done), 2) << part;
    EXPECT_EQ(done->output, "");
    EXPECT_TRUE(done->error.contains(part)) << done->error;
  }
}

TEST_F(TerminalProgram, NoRuntimeAndUnknownTaskSayWhatToDo) {
  auto without = vantrell({"run", "x"});
  without.environment["PATH"] = home / "nothing";
  const auto none = run(without);
  EXPECT_EQ(code(none), 2);
  EXPECT_TRUE(none->error.contains("vantrell run --practice")) << none->error;
  const std::vector<std::pair<std::string, std::string>> hints = {
      {"codex", "Install Codex (or the ChatGPT Mac app)"},
      {"local", "Start Ollama or LM Studio"},
      {"tasklet", "Add an HTTPS inbound webhook for Tasklet"}};
  for (const auto& [provider, hint] : hints) {
    const auto refused = run(vantrell({"run", "--provider", provider, "x"}));
    EXPECT_EQ(code(refused), 2);
    EXPECT_TRUE(refused->error.contains(hint)) << refused->error;
  }
  const auto unknown = runPractice({"--task", "ABCD", "x"});
  EXPECT_EQ(code(unknown), 2);
  EXPECT_TRUE(unknown->error.contains("There is no task ABCD")) << unknown->error;
  EXPECT_EQ(code(runPractice({"--task", "ABC", "x"})), 2);
}

TEST_F(TerminalProgram, ExecutableStandsInForTheProvidersProgram) {
  const std::string agent = terminal::programFolder() + "/vantrell-practice-agent";
  std::filesystem::create_symlink(agent, home.folder("bin") + "/my-kimi");
  for (const std::string& name : {agent, std::string("my-kimi"), std::string("../bin/my-kimi")}) {
    auto options = vantrell({"run", "--provider", "kimi", "--executable", name, "SAY:hi"});
    options.environment["PATH"] = home / "bin" + ":/usr/bin:/bin";
    const auto done = run(options);
    EXPECT_EQ(code(done), 0) << done->error;
    EXPECT_TRUE(done->output.starts_with("Kimi Code in " + project)) << done->output;
    EXPECT_TRUE(done->output.contains("✓ Kimi finished the task.")) << done->output;
  }
}

TEST_F(TerminalProgram, ModeHoldsForThisRunOnly) {
  const std::string agent = terminal::programFolder() + "/vantrell-practice-agent";
  const auto write = [&](std::vector<std::string> more) {
    std::vector<std::string> arguments = {"run", "--provider", "kimi", "--executable", agent};
    arguments.insert(arguments.end(), more.begin(), more.end());
    arguments.push_back("WRITE:a.txt=a");
    auto options = vantrell(arguments);
    options.standardInput = ProcessOptions::Input::null;
    return run(options)->output.contains("? Write a.txt");
  };
  EXPECT_TRUE(write({}));
  EXPECT_FALSE(write({"--mode", "auto"}));
  EXPECT_TRUE(write({}));
}

TEST_F(TerminalProgram, AnswersByKind) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"allow_once", "You answered: Allow once."},
      {"allow_always", "You answered: Allow always."},
      {"reject_once", "You answered: Reject."}};
  for (const auto& [kind, words] : cases) {
    const auto done = runPractice({"--answer", kind, "ASK:May I?"});
    EXPECT_EQ(code(done), 0);
    EXPECT_TRUE(done->output.contains(words)) << done->output;
  }
}

TEST_F(TerminalProgram, AnswersAreLinesOfStandardInput) {
  const auto done = runPracticeWith("what?\n1\nreject_once\n", {"ASK:First?\nASK:Second?"});
  EXPECT_EQ(code(done), 0);
  EXPECT_TRUE(done->output.contains("You answered: Allow once.")) << done->output;
  EXPECT_TRUE(done->output.contains("You answered: Reject.")) << done->output;
  EXPECT_TRUE(done->error.contains("\"what?\" is none of the options")) << done->error;
}

TEST_F(TerminalProgram, EndOfInputRefusesAndSaysSo) {
  const auto done = runPracticeWith("", {"--json", "WRITE:a.txt=a"});
  EXPECT_EQ(code(done), 0);
  EXPECT_TRUE(done->error.contains("--answer allow_once")) << done->error;
  EXPECT_FALSE(std::filesystem::exists(project + "/a.txt"));
  const auto all = events(done);
  const auto asked = std::ranges::find(all, "permission", kindOf);
  ASSERT_NE(asked, all.end());
  const auto* request = json::object(*asked, "request");
  EXPECT_EQ(json::textOr(*request, "title", ""), "Write a.txt");
  EXPECT_EQ(json::array(*request, "options")->size(), 3U);
}

TEST_F(TerminalProgram, TaskGoesOnInALaterProcess) {
  const auto first = runPractice({"--json", "SAY:one"});
  const std::string id = threadOf(first);
  ASSERT_EQ(id.size(), 36U);
  std::string prefix = id.substr(0, 6);
  for (char& letter : prefix) letter = static_cast<char>(std::tolower(letter));
  const auto second = runPractice({"--json", "--task", prefix, "SAY:two"});
  EXPECT_EQ(code(second), 0);
  EXPECT_EQ(threadOf(second), id);

  // What stands after the session was played back: nothing twice, the new prompt behind the old.
  std::vector<std::string> standing;
  for (const auto& event : events(second)) {
    if (kindOf(event) == "transcript") standing.clear();
    const auto* entry = json::object(event, "entry");
    if (!entry) continue;
    standing.push_back(json::textOr(*entry, "text", ""));
  }
  EXPECT_EQ(standing, (std::vector<std::string>{"SAY:one", "one", "SAY:two", "two"}));

  const auto third = runPractice({"--task", id, "SAY:three"});
  EXPECT_TRUE(third->output.contains("Going on after 4 earlier entries.\n\n› SAY:three\n\nthree\n"))
      << third->output;
}

TEST_F(TerminalProgram, EachRunWithoutATaskIsANewOne) {
  const auto first = threadOf(runPractice({"--json", "SAY:one"}));
  const auto second = threadOf(runPractice({"--json", "SAY:two"}));
  EXPECT_NE(first, second);
}

TEST_F(TerminalProgram, ModelIsKeptWithTheTask) {
  const auto first = runPractice({"--json", "--model", "big", "SAY:one"});
  const auto second = runPractice({"--json", "--task", threadOf(first), "SAY:two"});
  const auto all = events(second);
  EXPECT_EQ(json::textOr(*json::object(all.back(), "run"), "modelID", ""), "big");
}

TEST_F(TerminalProgram, AttachmentsReachTheAgentByTheirPaths) {
  home.file("project/notes.txt", "12345");
  const auto done = runPractice({"--json", "--attach", "notes.txt", "--attach", ".", "SAY:ok"});
  const auto all = events(done);
  const auto user = std::ranges::find(all, "entry", kindOf);
  ASSERT_NE(user, all.end());
  const auto* attachments = json::array(*json::object(*user, "entry"), "attachments");
  ASSERT_EQ(attachments->size(), 2U);
  EXPECT_EQ(json::textOr(*(*attachments)[0].asObject(), "path", ""), project + "/notes.txt");
  EXPECT_EQ(json::integer(*(*attachments)[0].asObject(), "byteCount"), 5);
  EXPECT_EQ(json::textOr(*(*attachments)[1].asObject(), "kind", ""), "directory");
}

TEST_F(TerminalProgram, InterruptStopsTheTurnAndItsAgent) {
  const auto record = start(practice({"SLOW:0.05"}));
  awaitOutput(*record, "tick");
  ::kill(static_cast<pid_t>(record->process->processID()), SIGINT);
  EXPECT_EQ(code(finish(record)), 130);
  EXPECT_TRUE(record->output.contains("■ Stopped by you.")) << record->output;
  expectNothingLeft();
  const auto next = runPractice({"SAY:free again"});
  EXPECT_EQ(code(next), 0);
}

TEST_F(TerminalProgram, SecondInterruptLeavesAtOnce) {
  const auto record = start(practice({"SLOW:0.01"}));
  awaitOutput(*record, "tick");
  // An agent that answers nothing any more, its cancelling least of all.
  for (const pid_t id : processesOf("vantrell-practice-agent")) ::kill(id, SIGSTOP);
  const auto begun = std::chrono::steady_clock::now();
  const auto id = static_cast<pid_t>(record->process->processID());
  ::kill(id, SIGINT);
  // Two signals that meet on their way are one.
  EXPECT_TRUE(main_.runUntil([&] {
    main_.post([] {});
    return !isPending(id, SIGINT);
  }));
  ::kill(id, SIGINT);
  awaitOutput(*record, "■ Stopped by you.");
  EXPECT_LT(std::chrono::steady_clock::now() - begun, shell::Session::stopTimeout);
  EXPECT_EQ(code(finish(record)), 130);
  expectNothingLeft();
}

TEST_F(TerminalProgram, TerminationEndsTheRunAsStopped) {
  const auto record = start(practice({"--json", "SLOW:0.05"}));
  awaitOutput(*record, "tick");
  ::kill(static_cast<pid_t>(record->process->processID()), SIGTERM);
  EXPECT_EQ(code(finish(record)), 128 + SIGTERM);
  std::string status;
  for (const auto& event : events(record)) {
    if (const auto* told = json::object(event, "run")) status = json::textOr(*told, "status", "?");
  }
  EXPECT_EQ(status, "cancelled");
  expectNothingLeft();
}

TEST_F(TerminalProgram, AgentThatIsKilledFailsTheRunWithItsLastWord) {
  const auto record = start(practice({"SLOW:0.05"}));
  awaitOutput(*record, "tick");
  const auto agents = processesOf("vantrell-practice-agent");
  ASSERT_FALSE(agents.empty());
  for (const pid_t id : agents) ::kill(id, SIGKILL);
  EXPECT_EQ(code(finish(record)), 1);
  EXPECT_TRUE(record->output.contains("✗ The practice agent exited with status 9.\n"))
      << record->output;
  expectNothingLeft();
}

TEST_F(TerminalProgram, ReaderThatGoesAwayStopsTheTaskQuietly) {
  auto options = practice({});
  options.arguments = {"-c", "\"$0\" run --practice SLOW:0.05 | head -n 1; exit ${PIPESTATUS[0]}",
                       options.executable};
  options.executable = "/bin/bash";
  const auto done = run(options);
  EXPECT_EQ(code(done), 130);
  EXPECT_EQ(done->error, "");
  expectNothingLeft();
}

TEST_F(TerminalProgram, SaveThatFailsIsToldOnceAndTheRunDoesNotCountAsCompleted) {
  home.folder("data");
  auto options = vantrell({});
  options.arguments = {"-m",
                       "-r",
                       "/bin/bash",
                       "-c",
                       "mount -t tmpfs -o size=512k none \"$XDG_DATA_HOME\" || exit 77;"
                       "exec \"$0\" run --practice -",
                       options.executable};
  options.executable = "/usr/bin/unshare";
  const auto record = start(std::move(options));
  record->process->write("SAY:hi\n" + std::string(2'000'000, 'x'));
  record->process->closeInput();
  finish(record);
  if (code(record) == 77 || record->error.starts_with("unshare")) {
    GTEST_SKIP() << "this user may not mount";
  }
  EXPECT_EQ(code(record), 1);
  EXPECT_TRUE(record->output.contains("✓ Local finished the task.")) << record->output;
  const std::string words = "could not be saved";
  const auto first = record->error.find(words);
  ASSERT_NE(first, std::string::npos) << record->error;
  EXPECT_EQ(record->error.find(words, first + 1), std::string::npos) << record->error;
}

TEST_F(TerminalProgram, SlowReaderGetsEverything) {
  const auto record = start(practice({"--json", "FLOOD:stdout=3000000\nSAY:the end"}));
  record->process->pauseReading();
  main_.runUntil([] { return false; }, 500ms);
  record->process->resumeReading();
  EXPECT_EQ(code(finish(record)), 0);
  std::size_t bytes = 0;
  for (const auto& event : events(record)) {
    if (kindOf(event) == "chunk") bytes += json::textOr(event, "text", "").size();
  }
  EXPECT_GE(bytes, 2'900'000U);
}

TEST_F(TerminalProgram, InterruptsWhileNobodyReadsEndIt) {
  const auto record = start(practice({"--json", "FLOOD:stdout=30000000"}));
  awaitOutput(*record, "\"running\"");
  record->process->pauseReading();
  // The first stops the task, the next one the waiting for a reader.
  bool hasEnded = false;
  for (int tries = 0; tries < 100 && !hasEnded; ++tries) {
    ::kill(static_cast<pid_t>(record->process->processID()), SIGINT);
    hasEnded = main_.runUntil([&] { return !record->process->isRunning(); }, 100ms);
  }
  EXPECT_TRUE(hasEnded);
  record->process->resumeReading();
  EXPECT_EQ(code(finish(record)), 130);
  expectNothingLeft();
}

TEST_F(TerminalProgram, WalkThroughEndsByItselfAndShowsAWholeTask) {
  auto options = vantrell({"--practice"});
  options.standardInput = ProcessOptions::Input::null;
  const auto done = run(options);
  EXPECT_EQ(code(done), 0) << done->error;
  for (const auto* part : {"every question is answered with \"allow once\"", "› THINK:", "│ ",
                           "Plan\n", "? Write note.txt", "✓ Read note.txt", "✓ Run wc",
                           "✓ Local finished the task.", "vantrell run \"explain this project\""}) {
    EXPECT_TRUE(done->output.contains(part)) << part;
  }
  EXPECT_TRUE(std::filesystem::exists(home / "data/vantrell/Practice/note.txt"));
  expectNothingLeft();
}

TEST_F(TerminalProgram, TellsWhatItFoundWhenAskedForNothing) {
  const std::string kimi = home.file("bin/kimi", "#!/bin/sh\n");
  std::filesystem::permissions(kimi, std::filesystem::perms::owner_all);
  auto options = vantrell({});
  options.environment["PATH"] = home / "bin";
  const auto done = run(options);
  EXPECT_EQ(code(done), 0);
  EXPECT_TRUE(done->output.contains(kimi)) << done->output;
  EXPECT_TRUE(done->output.contains("vantrell run \"")) << done->output;
  EXPECT_EQ(code(run(vantrell({"--version"}))), 0);
  EXPECT_EQ(code(run(vantrell({"help", "run"}))), 0);
}

}  // namespace
}  // namespace vantrell::tests
