#include <gtest/gtest.h>

#include "shell/terminal/commands.h"
#include "shell/terminal/run_arguments.h"

namespace vantrell::shell {
namespace {

using Words = std::vector<std::string_view>;

TEST(Arguments, RunTakesOptionsInAnyOrderAndEitherSpelling) {
  struct Case {
    Words words;
    RunArguments expected;
  };
  const std::vector<Case> cases = {
      {{"run", "hello"}, {.prompt = "hello"}},
      {{"run", "--project", "/p", "hello", "--json"},
       {.project = "/p", .json = true, .prompt = "hello"}},
      {{"run", "hello", "--project=/p", "--model=a=b"},
       {.project = "/p", .model = "a=b", .prompt = "hello"}},
      {{"run", "--provider", "kimi", "--executable", "./k", "--effort", "high", "x"},
       {.provider = AgentProvider::kimi, .executable = "./k", .effort = "high", .prompt = "x"}},
      {{"run", "--mode", "auto", "--workflow=review", "x"},
       {.mode = GrokPermissionMode::auto_, .workflow = TaskWorkflowMode::review, .prompt = "x"}},
      {{"run", "--attach", "a", "--attach=b", "x"}, {.attachments = {"a", "b"}, .prompt = "x"}},
      {{"run", "--task", "12AB", "--answer", "reject_once", "--practice", "x"},
       {.task = "12AB", .answer = "reject_once", .practice = true, .prompt = "x"}},
      {{"run", "--task", "12AB", "--executable", "./k", "x"},
       {.executable = "./k", .task = "12AB", .prompt = "x"}},
      {{"run", "-"}, {.prompt = "-"}},
      {{"run", "--json", "--", "--help"}, {.json = true, .prompt = "--help"}},
      {{"run", "--model", "--json", "x"}, {.model = "--json", .prompt = "x"}},
      {{"run", "--effort", "low", "--effort", "high", "x"}, {.effort = "high", .prompt = "x"}},
  };
  for (const auto& each : cases) {
    const auto read = readCommandLine(each.words);
    ASSERT_TRUE(read) << read.error().text;
    EXPECT_EQ(read->command, &runCommand);
    const auto run = readRunArguments(read->arguments);
    ASSERT_TRUE(run) << run.error().text;
    EXPECT_EQ(*run, each.expected) << each.words[1];
  }
}

TEST(Arguments, OtherCommands) {
  using Kind = Invocation::Kind;
  const std::vector<std::pair<Words, Kind>> cases = {
      {{}, Kind::welcome},
      {{"--practice"}, Kind::tour},
      {{"--help"}, Kind::help},
      {{"-h"}, Kind::help},
      {{"help"}, Kind::help},
      {{"help", "run"}, Kind::commandHelp},
      {{"--version"}, Kind::version},
      {{"run", "--help"}, Kind::commandHelp},
      {{"run", "--json", "x", "-h"}, Kind::commandHelp},
  };
  for (const auto& [words, kind] : cases) {
    const auto read = readCommandLine(words);
    ASSERT_TRUE(read) << read.error().text;
    EXPECT_EQ(read->kind, kind);
  }
}

TEST(Arguments, EveryMistakeSaysWhatToDo) {
  const std::vector<std::pair<Words, std::string>> cases = {
      {{"run"}, "Give a prompt"},
      {{"run", "explain", "this"}, "vantrell run \"explain this\""},
      {{"run", "--projct", "/p", "x"}, "Did you mean --project?"},
      {{"run", "--wrkflow=plan", "x"}, "Did you mean --workflow?"},
      {{"run", "--zzz", "x"}, "\"vantrell run --help\" lists the options"},
      {{"run", "-j", "x"}, "Unknown option -j"},
      {{"run", "x", "--model"}, "--model needs a value"},
      {{"run", "--model=", "x"}, "--model needs a value"},
      {{"run", "--json=yes", "x"}, "--json takes no value"},
      {{"run", "--provider", "gpt", "x"}, "grok, codex, kimi"},
      {{"run", "--mode", "full_access", "--workflow", "plan", "x"}, "never runs with full access"},
      {{"run", "--mode", "yolo", "x"}, "ask, auto, full_access"},
      {{"run", "--workflow", "test", "x"}, "build, plan, review"},
      {{"run", "--answer", "yes", "x"}, "allow_once, allow_always or reject_once"},
      {{"run", "--practice", "--provider", "kimi", "x"}, "Give one of them"},
      {{"run", "--task", "1234", "--project", ".", "x"}, "Leave out --project"},
      {{"run", "--executable", "k", "x"}, "--provider kimi"},
      {{"rum", "x"}, "Did you mean run?"},
      {{"explain", "this"}, "vantrell run \"explain this\""},
      {{"--json"}, "belongs to \"run\""},
      {{"--versoin"}, "Did you mean --version?"},
      {{"--practice", "x"}, "vantrell run --practice"},
      {{"help", "me"}, "\"vantrell help\" lists the commands"},
  };
  for (const auto& [words, part] : cases) {
    std::string said;
    if (const auto read = readCommandLine(words); !read) {
      said = read.error().text;
    } else if (const auto run = readRunArguments(read->arguments); !run) {
      said = run.error().text;
    }
    EXPECT_TRUE(said.contains(part)) << part << ": " << said;
  }
}

TEST(Arguments, EveryCommandHasItsHelp) {
  for (const Command* command : allCommands()) {
    EXPECT_TRUE(helpText().contains(command->summary)) << command->name;
    const std::string help = helpOf(*command);
    for (const auto& option : command->options) {
      EXPECT_TRUE(help.contains(option.name)) << command->name << " " << option.name;
    }
  }
}

// A command with all that the reader can be asked for.
TEST(Arguments, WordsAreCounted) {
  static constexpr CommandOption options[] = {jsonOption};
  const Command command{.name = "rename",
                        .parameters = "ID TITLE",
                        .summary = "",
                        .options = options,
                        .fewestWords = 2,
                        .mostWords = 2};
  struct Case {
    Words words;
    std::string refusal;  // empty: taken
  };
  const std::vector<Case> cases = {
      {{"12AB", "title"}, ""},
      {{"--json", "12AB", "--", "--title"}, ""},
      {{"12AB"}, "\"rename\" needs more: vantrell rename ID TITLE"},
      {{"12AB", "two", "words"}, "\"words\" is too much"},
      {{"12AB", "two", "--jsno"}, "Did you mean --json?"},
  };
  for (const auto& each : cases) {
    const auto read = readCommandArguments(command, each.words);
    EXPECT_EQ(read.has_value(), each.refusal.empty());
    const std::string said = read ? "" : read.error().text;
    EXPECT_TRUE(said.contains(each.refusal)) << said;
  }
}

}  // namespace
}  // namespace vantrell::shell
