#include "platform/text/text.h"
#include "shell/program_fixture.h"

namespace vantrell::tests {
namespace {

/// The commands about tasks and projects, as a user types them.
class TaskCommands : public TerminalProgram {
 protected:
  using Words = std::vector<std::string>;

  /// A member of each object.
  std::vector<std::string> texts(Words words, std::string_view member) {
    std::vector<std::string> all;
    for (const auto& each : objects(std::move(words)))
      all.push_back(json::textOr(each, member, "-"));
    return all;
  }
  std::string newTask(const std::string& title) {
    const auto made = texts({"new", title}, "threadID");
    return made.size() == 1 ? made[0] : "";
  }
  static std::string beginning(const std::string& id) { return id.substr(0, 8); }
};

TEST_F(TaskCommands, ATaskIsListedShownFoundAndGoneOnWith) {
  const auto done = runPractice({"--json", "SAY:Hello Wörld\nTHINK:hm"});
  const std::string id = threadOf(done);
  const auto list = does({"tasks"});
  EXPECT_EQ(code(list), 0);
  EXPECT_TRUE(list->output.contains(beginning(id) +
                                    "  project  SAY:Hello Wörld  completed  Local  just now\n"))
      << list->output;
  EXPECT_EQ(texts({"tasks", "--project", "."}, "threadID"), Words{id});
  EXPECT_EQ(texts({"tasks", "--project", "general"}, "status"), Words{"-"});

  const auto shown = does({"show", id});
  EXPECT_TRUE(shown->output.contains("Hello Wörld\n\n│ hm\n")) << shown->output;
  EXPECT_TRUE(shown->output.contains(id)) << shown->output;
  const auto last = does({"show", beginning(id), "--last", "1"});
  EXPECT_TRUE(last->output.contains("... 2 earlier entries\n\n│ hm\n")) << last->output;
  const auto runs = does({"show", id, "--runs"});
  EXPECT_TRUE(runs->output.contains("Local finished the task.")) << runs->output;
  const auto record = objects({"show", id});
  ASSERT_EQ(record.size(), 1U);
  EXPECT_EQ(json::array(record[0], "entries")->size(), 3U);

  const auto found = objects({"search", "wÖRLD", "--in", "entries"});
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(json::textOr(found[1], "kind", ""), "assistant");
  EXPECT_EQ(json::textOr(found[1], "hit", ""), "Wörld");
  const auto entry = does({"show", id, "--entry", json::textOr(found[1], "entryID", "")});
  EXPECT_TRUE(entry->output.contains("... 1 earlier entry\n\nHello Wörld\n")) << entry->output;
  const auto marked = does({"search", "wörld"});
  EXPECT_TRUE(marked->output.contains("Hello [Wörld]\n")) << marked->output;
  EXPECT_EQ(code(does({"search", "nowhere to be found"})), 1);

  EXPECT_EQ(code(runPractice({"--task", text::lowercased(beginning(id)), "SAY:more"})), 0);
  EXPECT_EQ(texts({"tasks", "--project", "."}, "threadID"), Words{id});
}

TEST_F(TaskCommands, AConversationIsExportedAndItsAnswerSpoken) {
  const auto done = runPractice({"--json", "SAY:**Done**, see `a.cpp`"});
  const std::string id = threadOf(done);
  const auto exported = does({"export", id});
  EXPECT_EQ(code(exported), 0);
  const std::string document = exported->output;
  EXPECT_TRUE(
      document.ends_with("_Workspace: project_\n\n## You\n\nSAY:**Done**, see `a.cpp`\n\n"
                         "## Local\n\n**Done**, see `a.cpp`\n"))
      << document;
  const std::string file = home.folder("papers") + "/talk.md";
  EXPECT_EQ(code(does({"export", id, file})), 0);
  EXPECT_EQ(files::read(file).value_or(""), document);
  EXPECT_EQ(code(does({"export", id, file})), 2) << "it would write over a file";
  EXPECT_EQ(code(does({"export", "--replace", id, file})), 0);
  EXPECT_EQ(does({"say", id})->output, "Done, see a.cpp\n");
  const auto nothing = does({"say", newTask("Silent")});
  EXPECT_EQ(code(nothing), 1);
  EXPECT_EQ(nothing->error, "vantrell: There is no answer in this task yet.\n");
}

TEST_F(TaskCommands, NewTasksAreSelectedAndNamed) {
  const std::string first = newTask("  First ");
  const std::string second = newTask("Second");
  EXPECT_EQ(texts({"tasks", "--project", "project"}, "title"), (Words{"Second", "First"}));
  EXPECT_EQ(texts({"new", "--project", "General"}, "title"), Words{"New chat"});
  EXPECT_EQ(texts({"new", "--project", home.folder("other")}, "project"), Words{"other"});
  EXPECT_EQ(texts({"tasks", "--project", "other"}, "title"), Words{"New task"}) << "one, not two";
  EXPECT_EQ(texts({"rename", first, "Other"}, "title"), Words{"Other"});
  EXPECT_EQ(code(does({"rename", first, " "})), 2);
  EXPECT_EQ(code(does({"new", ""})), 2);
  const auto nowhere = does({"new", "--project", "nowhere"});
  EXPECT_EQ(code(nowhere), 2);
  EXPECT_TRUE(nowhere->error.contains("There is no project nowhere")) << nowhere->error;
}

TEST_F(TaskCommands, ATaskThatWasGivenATitleWaitsForItsOwnRun) {
  const std::string prepared = newTask("Nightly check");
  const std::string taken = threadOf(runPractice({"--json", "SAY:something else"}));
  EXPECT_NE(taken, prepared);
  EXPECT_EQ(texts({"tasks", "--project", "."}, "title"),
            (Words{"SAY:something else", "Nightly check"}));
  EXPECT_EQ(threadOf(runPractice({"--json", "--task", prepared, "SAY:now"})), prepared);
  EXPECT_EQ(texts({"tasks", "--project", "."}, "title")[0], "Nightly check") << "it keeps it";
}

TEST_F(TaskCommands, PinnedTasksComeFirstAndArchivedOnesAreOutOfSight) {
  const std::string first = newTask("First");
  const std::string second = newTask("Second");
  EXPECT_EQ(code(does({"pin", first, first})), 0);
  EXPECT_EQ(texts({"tasks", "--project", "."}, "title"), (Words{"First", "Second"}));
  EXPECT_EQ(code(does({"pin", first})), 0) << "it is not unpinned by doing it twice";
  EXPECT_EQ(texts({"tasks", "--project", "."}, "title"), (Words{"First", "Second"}));
  EXPECT_EQ(code(does({"pin", "--off", first})), 0);
  EXPECT_EQ(texts({"tasks", "--project", "."}, "title"), (Words{"Second", "First"}));

  EXPECT_EQ(code(does({"archive", first, second})), 0);
  EXPECT_EQ(texts({"tasks", "--archived"}, "title"), (Words{"Second", "First"}));
  EXPECT_EQ(texts({"tasks", "--project", "."}, "title"), Words{"New task"})
      << "nobody stands in an empty project";
  EXPECT_EQ(code(does({"archive", "--off", first})), 0);
  EXPECT_EQ(texts({"tasks", "--archived"}, "title"), Words{"Second"});
  EXPECT_EQ(texts({"tasks", "--all", "--limit", "1"}, "title").size(), 1U);
}

TEST_F(TaskCommands, DeletingTakesAYes) {
  const std::string id = newTask("Precious");
  const auto asked = does({"delete", id});
  EXPECT_EQ(code(asked), 2);
  EXPECT_TRUE(asked->error.contains("--yes")) << asked->error;
  EXPECT_EQ(texts({"tasks", "--project", "."}, "title"), Words{"Precious"});
  EXPECT_EQ(texts({"delete", "--yes", id}, "title"), Words{"Precious"});
  EXPECT_EQ(texts({"tasks", "--project", "."}, "title"), Words{"New task"});
  EXPECT_EQ(code(does({"delete", "--yes", id})), 2) << "it has gone";
}

TEST_F(TaskCommands, ProjectsComeAndGo) {
  const std::string other = home.folder("other");
  EXPECT_EQ(texts({"projects", "add", "../other"}, "path"), Words{other});
  EXPECT_TRUE(does({"projects", "add", other})->output.contains("is a project already: other"));
  EXPECT_EQ(code(does({"projects", "add", "/nowhere"})), 2);
  const std::string id = newTask("Task");
  EXPECT_EQ(texts({"move", id, "other"}, "project"), Words{"other"});
  EXPECT_TRUE(does({"move", id, "other"})->output.contains("is in other: Task"));
  EXPECT_EQ(code(does({"move", id, "nowhere"})), 2);
  EXPECT_EQ(code(does({"projects", "pin", "project"})), 0);
  EXPECT_EQ(texts({"projects"}, "name"), (Words{"General", "project", "other"}));
  EXPECT_EQ(code(does({"projects", "pin", "--off", "project"})), 0);
  EXPECT_EQ(texts({"projects", "list"}, "name"), (Words{"General", "other", "project"}));
  EXPECT_TRUE(does({"projects", "archive", "other"})->output.contains("2 tasks archived: other"));
  EXPECT_EQ(texts({"tasks", "--project", "other"}, "title"), Words{"New task"});

  EXPECT_EQ(code(does({"projects", "remove", "other"})), 2) << "nobody said yes";
  EXPECT_EQ(code(does({"projects", "remove", "--yes", "general"})), 2);
  EXPECT_EQ(code(does({"projects", "remove", "--yes", "other"})), 0);
  EXPECT_EQ(texts({"projects"}, "name"), (Words{"General", "project"}));
  EXPECT_TRUE(std::filesystem::exists(other));
}

TEST_F(TaskCommands, EveryMistakeSaysWhatToDo) {
  const std::string id = newTask("Task");
  const std::vector<std::pair<Words, std::string>> cases = {
      {{"show", "FFFF"}, "vantrell tasks"},
      {{"show", id, "--last", "none"}, "--last cannot be"},
      {{"show", id, "--entry", "none"}, "--entries"},
      {{"show", id, "--runs", "--json"}, "exclude each other"},
      {{"tasks", "--all", "--archived"}, "Leave out --archived"},
      {{"tasks", "--project", "nowhere"}, "vantrell projects"},
      {{"search", "  "}, "is empty"},
      {{"search", "x", "--in", "y"}, "titles, entries or all"},
      {{"projects", "ad"}, "Did you mean add?"},
      {{"projects", "remove"}, "vantrell projects remove [options] PROJECT"},
      {{"projects", "--off"}, "Unknown option --off"},
      {{"pin"}, "vantrell pin [options] ID"},
  };
  for (const auto& [words, part] : cases) {
    const auto done = does(words);
    EXPECT_EQ(code(done), 2) << part;
    EXPECT_EQ(done->output, "");
    EXPECT_TRUE(done->error.contains(part)) << done->error;
  }
}

TEST_F(TaskCommands, WhatTheEngineRefusesIsToldInItsWords) {
  EXPECT_EQ(code(does({"projects", "add", "."})), 0);
  const auto id = texts({"tasks", "--project", "."}, "threadID").at(0);
  newTask("Elsewhere");
  EXPECT_EQ(code(does({"projects", "add", home.folder("other")})), 0);
  const auto all = texts({"tasks", "--project", "."}, "threadID");
  for (const auto& each : all) EXPECT_EQ(code(does({"archive", each})), 0);
  const auto refused = does({"projects", "archive", "project"});
  EXPECT_EQ(code(refused), 1);
  EXPECT_EQ(refused->error, "vantrell: This project has no active conversations to archive.\n");
}

TEST_F(TaskCommands, AFullDiskIsAFailureThatSaysSo) {
  newTask("Task");
  for (const std::string command : {"tasks", "projects", "search Task", "run --practice SAY:hello",
                                    "run --practice --json SAY:hello"}) {
    auto options = vantrell({});
    options.arguments = {"-c", "\"$0\" " + command + " < /dev/null > /dev/full",
                         options.executable};
    options.executable = "/bin/sh";
    const auto done = run(std::move(options));
    EXPECT_EQ(code(done), 1) << command;
    EXPECT_EQ(done->error, "vantrell: The output could not be written: No space left on device.\n");
  }
  expectNothingLeft();
}

TEST_F(TaskCommands, AReaderWhoLeavesIsNoFailureOfAList) {
  newTask("Task");
  auto options = vantrell({});
  options.arguments = {"-c", "\"$0\" tasks | true; exit ${PIPESTATUS[0]}", options.executable};
  options.executable = "/bin/bash";
  const auto done = run(std::move(options));
  EXPECT_EQ(code(done), 0);
  EXPECT_EQ(done->error, "");
}

TEST_F(TaskCommands, ExecutableOfATaskIsThatOfItsProvider) {
  const std::string agent = terminal::programFolder() + "/vantrell-practice-agent";
  const std::string untouched = newTask("Untouched");
  const auto nobody = does({"run", "--task", untouched, "--executable", agent, "SAY:hi"});
  EXPECT_EQ(code(nobody), 2);
  EXPECT_TRUE(nobody->error.contains("--provider kimi")) << nobody->error;

  const std::string id =
      threadOf(does({"run", "--json", "--provider", "kimi", "--executable", agent, "SAY:one"}));
  const auto again = does({"run", "--task", id, "--executable", agent, "SAY:two"});
  EXPECT_EQ(code(again), 0) << again->error;
  EXPECT_TRUE(again->output.starts_with("Kimi Code in ")) << again->output;
}

TEST_F(TaskCommands, ATaskGoesOnInTheProjectThatIsNamedIfItIsItsOwn) {
  const std::string id = newTask("Task");
  for (const char* own : {".", "project"}) {
    EXPECT_EQ(code(runPractice({"--task", id, "--project", own, "SAY:hi"})), 0) << own;
  }
  const auto other = runPractice({"--task", id, "--project", home.folder("other"), "SAY:hi"});
  EXPECT_EQ(code(other), 2);
  EXPECT_TRUE(other->error.contains("belongs to the project project in ")) << other->error;
}

TEST_F(TaskCommands, LookingNeverKeepsAnotherFromStarting) {
  newTask("Task");
  std::vector<std::shared_ptr<Record>> looking;
  for (int i = 0; i < 8; ++i) {
    looking.push_back(start(vantrell({"tasks"})));
    EXPECT_EQ(code(does({"new"})), 0) << i;
  }
  for (const auto& each : looking) EXPECT_EQ(code(finish(each)), 0);
}

TEST_F(TaskCommands, NothingInANameDrivesTheTerminalThroughAnErrorMessage) {
  const std::string name = "evil\x1b]0;title\x07\xE2\x80\xAEname";
  for (const Words& words : {Words{"projects", "add", name}, Words{"new", "--project", name},
                             Words{"run", "--practice", "--attach", name, "x"}, Words{name},
                             Words{"show", name}, Words{"settings", name}}) {
    const auto done = does(words);
    EXPECT_NE(code(done), 0);
    EXPECT_NE(done->error, "");
    for (const char* part : {"\x1b", "\x07", "\xE2\x80\xAE"}) {
      EXPECT_FALSE((done->error + done->output).contains(part)) << words[0];
    }
  }
}

TEST_F(TaskCommands, AQuestionAtTheTerminalTakesTheRightWords) {
  const std::string id = newTask("Precious");
  const auto typed = [&](const std::string& commandLine, const std::string& answer) {
    auto options = vantrell({});
    options.arguments = {"-qec", options.executable + " " + commandLine, "/dev/null"};
    options.executable = "/usr/bin/script";  // gives it a terminal
    const auto record = start(std::move(options));
    awaitOutput(*record, answer.starts_with("Enable") || answer == "yes" ? ": " : "[y/N] ");
    record->process->write(answer + "\n");
    return code(finish(record));
  };
  EXPECT_EQ(typed("settings mode full_access", "yes"), 2);
  EXPECT_EQ(does({"settings", "mode"})->output, "ask\n");
  EXPECT_EQ(typed("settings mode full_access", "Enable Full Access"), 0);
  EXPECT_EQ(does({"settings", "mode"})->output, "full_access\n");
  EXPECT_EQ(typed("delete " + id, "yesterday"), 130);
  EXPECT_EQ(typed("delete " + id, " Y "), 0);
  EXPECT_EQ(texts({"tasks", "--project", "."}, "title"), Words{"New task"});
}

}  // namespace
}  // namespace vantrell::tests
