#include "shell/program_fixture.h"
#include "support/acp_agent_script.h"
#include "support/git_repository.h"

namespace vantrell::tests {
namespace {

/// Queues, branches and comparisons as a user meets them.
class QueueCommands : public TerminalProgram {
 protected:
  using Words = std::vector<std::string>;

  QueueCommands() { usePracticeAgents(); }
  std::shared_ptr<Record> begin(Words words) {
    auto options = vantrell(std::move(words));
    options.standardInput = ProcessOptions::Input::null;
    return start(std::move(options));
  }
  void makeRepository() const {
    home.file("project/a.txt", "one\n");
    GitRepository::git(project, {"init", "--quiet"});
    GitRepository::git(project, {"add", "--all"});
    GitRepository::git(project, {"commit", "--quiet", "-m", "A commit"});
  }
  JsonObject stored(const std::string& task) {
    return json::parseObject(does({"show", task, "--json"})->output).value_or(JsonObject());
  }
  /// The texts of the entries of one kind.
  Words said(const std::string& task, std::string_view kind) {
    Words texts;
    const JsonObject record = stored(task);
    const auto* entries = json::array(record, "entries");
    for (const auto& entry : entries ? *entries : Json::Array()) {
      if (json::textOr(*entry.asObject(), "kind", "") != kind) continue;
      texts.push_back(json::textOr(*entry.asObject(), "text", ""));
    }
    return texts;
  }
  static std::vector<JsonObject> ofKind(const std::shared_ptr<Record>& record,
                                        std::string_view kind) {
    auto all = events(record);
    std::erase_if(all, [&](const JsonObject& event) { return kindOf(event) != kind; });
    return all;
  }

  GitRepository settings_;  // keeps the user's configuration of git out
};

TEST_F(QueueCommands, QueueIsEditedRunsInOrderAndWaitsAfterAFailure) {
  const std::string task = threadOf(does({"run", "--json", "SAY:one"}));
  for (const char* prompt : {"SAY:four", "FAIL:broken", "SAY:five", "SAY:two"}) {
    EXPECT_EQ(code(does({"queue", "add", task, prompt})), 0);
  }
  auto waiting = events(does({"queue", task, "--json"}));
  ASSERT_EQ(waiting.size(), 4U);
  does({"queue", "remove", task, json::textOr(waiting[2], "id", "")});
  does({"queue", "front", task, json::textOr(waiting[1], "id", "")});
  waiting = events(does({"queue", "front", task, json::textOr(waiting[3], "id", ""), "--json"}));
  ASSERT_EQ(waiting.size(), 3U);
  EXPECT_EQ(json::textOr(waiting[0], "text", ""), "SAY:two");

  const auto failed = does({"queue", "run", task});
  EXPECT_EQ(code(failed), 1) << failed->output;
  EXPECT_TRUE(failed->output.contains("✓ Grok finished the task.\n\n› ")) << failed->output;
  EXPECT_TRUE(failed->error.contains("1 prompt waits in the queue. To send it: vantrell queue run"))
      << failed->error;
  // The next run that goes well takes the queue along.
  const auto last = does({"run", "--task", task, "SAY:three"});
  EXPECT_EQ(code(last), 0) << last->output << last->error;
  EXPECT_EQ(said(task, "assistant"), (Words{"one", "two", "three", "four"}));
  EXPECT_EQ(does({"queue", task})->output, "The queue is empty.\n");
  EXPECT_EQ(code(does({"queue", "run", task})), 2);
  EXPECT_EQ(code(does({"queue", "frnt", task, "x"})), 2);
  EXPECT_EQ(code(does({"queue", "add", task})), 2);
  EXPECT_EQ(code(does({"queue", "clear", task, "--practice"})), 2);
}

TEST_F(QueueCommands, PromptTypedWhileTheTaskWorksWaits) {
  auto options = vantrell({});
  options.arguments = {"-qec", options.executable + " run --practice SLOW:0.03", "/dev/null"};
  options.executable = "/usr/bin/script";  // gives it a terminal
  const auto record = start(std::move(options));
  awaitOutput(*record, "tick");
  record->process->write("7\n\nSAY:typed\n");
  EXPECT_EQ(code(finish(record)), 0);
  for (const char* text : {"No question is open", "Queued for when", "SAY:typed", "\ntyped"}) {
    EXPECT_TRUE(record->output.contains(text)) << text << "\n" << record->output;
  }
}

TEST_F(QueueCommands, BranchRunsInAWorktreeAndLeavesTheTaskAsItIs) {
  makeRepository();
  home.file("project/a.txt", "not committed\n");
  const std::string task = threadOf(does({"run", "--json", "SAY:one"}));
  does({"run", "--task", task, "SAY:two"});
  const auto before = does({"show", task, "--json"})->output;
  const auto list = does({"show", task, "--entries"});
  // Its answer stands for the prompt before it.
  const auto row = list->output.find("assistant");
  const std::string entry = list->output.substr(list->output.rfind('\n', row) + 1, 8);

  const auto branch = does({"branch", task, "--from", entry, "--provider", "kimi", "--json",
                            "--answer", "allow_once", "WRITE:a.txt=of the branch"});
  EXPECT_EQ(code(branch), 0) << branch->error;
  const std::string made = threadOf(branch);
  const JsonObject record = stored(made);
  const std::string folder = json::textOr(record, "isolatedWorkspacePath", "");
  EXPECT_EQ(json::textOr(record, "workspaceMode", ""), "isolated");
  EXPECT_EQ(TemporaryFolder::contentOf(folder + "/a.txt"), "of the branch");
  EXPECT_EQ(TemporaryFolder::contentOf(project + "/a.txt"), "not committed\n");
  EXPECT_EQ(said(made, "user"), (Words{"WRITE:a.txt=of the branch"}));
  EXPECT_EQ(does({"show", task, "--json"})->output, before);

  const auto retry = does({"retry", task});
  EXPECT_EQ(code(retry), 0) << retry->error;
  EXPECT_TRUE(retry->output.contains("/worktrees/")) << retry->output;
  EXPECT_TRUE(retry->output.contains("› SAY:two")) << retry->output;
  EXPECT_TRUE(retry->output.contains("Going on after 2 earlier entries.")) << retry->output;
  const auto fork = does({"fork", task, "--through", entry, "--json"});
  EXPECT_EQ(said(threadOf(fork), "assistant"), Words{"one"});
  EXPECT_EQ(code(does({"fork", task, "--through", "nowhere"})), 2);
  EXPECT_EQ(code(does({"branch", task, "--from", "nowhere", "SAY:x"})), 2);
  const auto gone = does({"delete", made, "--yes"});
  EXPECT_EQ(code(gone), 0);
  EXPECT_TRUE(gone->error.contains("Its worktree stays: " + folder)) << gone->error;
}

TEST_F(QueueCommands, BranchWithoutARepositorySaysThatItWorksInTheProject) {
  const std::string task = threadOf(does({"run", "--json", "SAY:one"}));
  const auto branch = does({"branch", task, "SAY:other"});
  EXPECT_EQ(code(branch), 0);
  EXPECT_TRUE(branch->output.contains(project + "\n")) << branch->output;
  EXPECT_TRUE(branch->error.contains("This project is not a Git repository.")) << branch->error;
}

TEST_F(QueueCommands, ComparisonShowsBothAndWhereTheirWorkLies) {
  makeRepository();
  const auto done = does({"compare", "--json", "--with", "kimi", "--with", "grok", "--answer",
                          "allow_once", "SAY:hello\nWRITE:made.txt=made"});
  EXPECT_EQ(code(done), 0) << done->error;
  const auto results = ofKind(done, "result");
  ASSERT_EQ(results.size(), 2U) << done->output;
  EXPECT_EQ(json::textOr(results[0], "provider", ""), "kimi");
  EXPECT_EQ(json::textOr(results[1], "provider", ""), "grok");
  EXPECT_EQ(json::textOr(results[0], "comparisonGroupID", "0"),
            json::textOr(results[1], "comparisonGroupID", "1"));
  for (const auto& result : results) {
    EXPECT_EQ(TemporaryFolder::contentOf(json::textOr(result, "path", "") + "/made.txt"), "made");
    EXPECT_EQ(json::array(result, "files")->size(), 1U);
  }
  for (const auto& event : events(done)) EXPECT_NE(json::textOr(event, "threadID", ""), "");
  EXPECT_FALSE(files::exists(project + "/made.txt"));
  EXPECT_EQ(events(does({"tasks", "--project", ".", "--json"})).size(), 2U)
      << "the task that was only made to be compared has gone";

  auto options = vantrell({"compare", "--with", "kimi", "--with", "grok", "ASK:May I?"});
  const auto asked = start(options);
  asked->process->write("1\nreject_once\n");
  asked->process->closeInput();
  EXPECT_EQ(code(finish(asked)), 0) << asked->error;
  // Whoever asks first is answered first.
  for (const char* text : {"Kimi asks:", "Grok asks:", "Kimi Code in /", "Grok in /",
                           "You answered: Allow once.", "You answered: Reject."}) {
    EXPECT_TRUE(asked->output.contains(text)) << text << "\n" << asked->output;
  }
}

TEST_F(QueueCommands, ComparisonGivesNoHalfToTheOtherProvider) {
  makeRepository();
  const auto script = home.file("script", ACPAgentScript()
                                              .openSession()
                                              .expectPrompt()
                                              .error("usage limit reached")
                                              .line("hang")
                                              .text());
  const auto limited =
      install("limited", "exec '" + ACPAgentScript::program() + "' '" + script + "'");
  does({"settings", "grok-path", limited});
  const auto done = does({"compare", "--json", "--with", "kimi", "--with", "grok", "SAY:hello"});
  EXPECT_EQ(code(done), 1) << done->error;
  EXPECT_TRUE(done->output.contains("usage limit reached")) << done->output;
  std::map<std::string, std::string> statuses;
  for (const auto& event : ofKind(done, "result")) {
    EXPECT_EQ(json::textOr(event, "provider", "?"), json::textOr(event, "chosen", "!"));
    statuses[json::textOr(event, "provider", "")] = json::textOr(event, "status", "");
  }
  EXPECT_EQ(statuses,
            (std::map<std::string, std::string>{{"grok", "failed"}, {"kimi", "completed"}}));
}

TEST_F(QueueCommands, ComparisonIsStoppedWhole) {
  makeRepository();
  const auto record = begin({"compare", "--json", "--with", "kimi", "--with", "grok", "SLOW:0.05"});
  main_.runUntil(
      [&] {
        std::set<std::string> heard;
        std::string_view rest = record->output;
        rest = rest.substr(0, rest.rfind('\n') + 1);
        for (auto end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
          const auto event = json::parseObject(rest.substr(0, end));
          if (event && kindOf(*event) == "chunk") heard.insert(*json::text(*event, "threadID"));
          rest.remove_prefix(end + 1);
        }
        return heard.size() == 2;
      },
      60s);
  ::kill(static_cast<pid_t>(record->process->processID()), SIGINT);
  EXPECT_EQ(code(finish(record)), 130) << record->error;
  std::map<std::string, std::string> statuses;
  for (const auto& event : ofKind(record, "result")) {
    statuses[json::textOr(event, "provider", "")] = json::textOr(event, "status", "");
  }
  EXPECT_EQ(statuses,
            (std::map<std::string, std::string>{{"grok", "cancelled"}, {"kimi", "cancelled"}}));
  expectNothingLeft();
}

TEST_F(QueueCommands, ComparisonNeedsGitAndTwoProviders) {
  const auto done = does({"compare", "--with", "kimi", "--with", "grok", "SAY:hello"});
  EXPECT_EQ(code(done), 1);
  EXPECT_TRUE(
      done->output.contains("Could not create a safe comparison worktree: This project is "
                            "not a Git repository."))
      << done->output << done->error;
  EXPECT_FALSE(done->output.contains("hello"));
  EXPECT_EQ(code(does({"compare", "--with", "kimi", "--with", "kimi", "SAY:hello"})), 2);
  EXPECT_EQ(code(does({"compare", "--with", "kimi", "--with", "kimmi", "SAY:hello"})), 2);
  const auto missing = does({"compare", "--with", "kimi", "--with", "codex", "SAY:hello"});
  EXPECT_EQ(code(missing), 2);
  EXPECT_TRUE(missing->error.contains("is not installed")) << missing->error;
}

}  // namespace
}  // namespace vantrell::tests
