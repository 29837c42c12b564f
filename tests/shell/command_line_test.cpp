#include "shell/terminal/command_line.h"

#include <gtest/gtest.h>

#include "platform/files/files.h"
#include "shell/terminal/command_groups.h"

namespace vantrell::shell {
namespace {

using Words = std::vector<std::string_view>;

TEST(CommandLine, TakesOptionsInAnyOrderAndEitherSpelling) {
  struct Case {
    Words words;
    std::string name, given, rest;  // "--option=value ..." and the words
  };
  const std::vector<Case> cases = {
      {{"run", "hello"}, "run", "", "hello"},
      {{"run", "--project", "/p", "hello", "--json"}, "run", "--project=/p --json=", "hello"},
      {{"run", "hello", "--project=/p", "--model=a=b"}, "run", "--project=/p --model=a=b", "hello"},
      {{"run", "--attach", "a", "--attach=b", "x"}, "run", "--attach=a --attach=b", "x"},
      {{"run", "-"}, "run", "", "-"},
      {{"run", "--json", "--", "--help"}, "run", "--json=", "--help"},
      {{"run", "--model", "--json", "x"}, "run", "--model=--json", "x"},
      {{"run", "tasks"}, "run", "", "tasks"},
      {{"rename", "12AB", "tasks"}, "rename", "", "12AB tasks"},
      {{"queue", "12AB"}, "queue", "", "12AB"},
      {{"queue", "--json", "add", "12AB", "run"}, "queue add", "--json=", "12AB run"},
      {{"context", "decisions", "add", "a", "b"}, "context decisions add", "", "a b"},
      {{"settings", "workflow", "plan"}, "settings", "", "workflow plan"},
      {{"settings", "import", "--yes", "f"}, "settings import", "--yes=", "f"},
  };
  const auto commands = allCommands();
  for (const auto& each : cases) {
    const auto read = readCommandLine(commands, each.words);
    ASSERT_TRUE(read) << read.error().text;
    EXPECT_EQ(read->kind, Invocation::Kind::command);
    EXPECT_EQ(read->name, each.name);
    std::string given, rest;
    for (const auto& [option, value] : read->arguments.given) {
      given += (given.empty() ? "" : " ") + std::string(option) + "=" + value;
    }
    for (const auto& word : read->arguments.words) rest += (rest.empty() ? "" : " ") + word;
    EXPECT_EQ(given, each.given);
    EXPECT_EQ(rest, each.rest);
  }
}

TEST(CommandLine, LastValueCountsAndChoicesAreRead) {
  const auto read =
      readCommandLine(allCommands(), Words{"run", "--mode", "ask", "--mode=auto", "x"});
  ASSERT_TRUE(read) << read.error().text;
  EXPECT_EQ(read->arguments.value("--mode"), "auto");
  EXPECT_EQ(read->arguments.values("--mode").size(), 2U);
}

TEST(CommandLine, SpecialPages) {
  using Kind = Invocation::Kind;
  const std::vector<std::pair<Words, Kind>> cases = {
      {{}, Kind::welcome},
      {{"--practice"}, Kind::tour},
      {{"--help"}, Kind::help},
      {{"help", "queue", "add"}, Kind::help},
      {{"--version"}, Kind::version},
      {{"run", "--json", "x", "-h"}, Kind::help},
      {{"queue", "add", "--help"}, Kind::help},
  };
  for (const auto& [words, kind] : cases) {
    const auto read = readCommandLine(allCommands(), words);
    ASSERT_TRUE(read) << read.error().text;
    EXPECT_EQ(read->kind, kind);
  }
}

TEST(CommandLine, EveryMistakeSaysWhatToDo) {
  const std::vector<std::pair<Words, std::string>> cases = {
      {{"run", "--projct", "/p", "x"}, "Did you mean --project?"},
      {{"run", "--wrkflow=plan", "x"}, "Did you mean --workflow?"},
      {{"run", "--zzz", "x"}, "\"vantrell run --help\" lists the options"},
      {{"run", "-j", "x"}, "Unknown option -j"},
      {{"run", "x", "--model"}, "--model: 1 required M missing. \"vantrell run --help\""},
      {{"run", "--model=", "x"}, "--model= needs a value"},
      {{"run", "--json=yes", "x"}, "--json takes no value"},
      {{"run", "--provider", "gpt", "x"}, "--provider cannot be \"gpt\"; use grok, codex, kimi"},
      {{"run", "--mode", "yolo", "x"}, "--mode cannot be \"yolo\"; use ask, auto or full_access."},
      {{"run", "--workflow", "pan", "x"}, "Did you mean plan?"},
      {{"run", "--answer", "yes", "x"}, "allow_once, allow_always or reject_once"},
      {{"tasks", "--limit", "0"}, "--limit cannot be \"0\"; use a whole number from 1."},
      {{"rename", "12AB"}, "vantrell rename [options] ID TITLE"},
      {{"rename", "12AB", "two", "words"}, "Put a text with spaces in quotes"},
      {{"queue", "clear", "12AB", "--practice"}, "Unknown option --practice"},
      {{"queue", "frnt", "12AB", "x"}, "Did you mean front?"},
      {{"queue", "--attach", "f", "12AB"}, "Unknown option --attach"},
      {{"checkpoint", "mak", "12AB"}, "list, make or restore. Did you mean make?"},
      {{"checkpoint"}, "list, make or restore"},
      {{"rum", "x"}, "Did you mean run?"},
      {{"explain", "this"}, "To start a task: vantrell run"},
      {{"run"}, "vantrell run [options] \"prompt\""},
      {{"--versoin"}, "Did you mean --version?"},
      {{"--practice", "x"}, "vantrell run --practice"},
      {{"help", "me"}, "\"vantrell help\" lists the commands"},
  };
  for (const auto& [words, part] : cases) {
    const auto read = readCommandLine(allCommands(), words);
    const std::string said = read ? "" : read.error().text;
    EXPECT_TRUE(said.contains(part)) << part << ": " << said;
  }
}

// The part of the document below this line is what `vantrell help --reference` prints.
TEST(CommandLine, ReferenceInTheDocumentIsThatOfTheCommands) {
  const auto document = files::read(VANTRELL_SOURCES "/docs/terminal.md");
  ASSERT_TRUE(document);
  constexpr std::string_view mark = "<!-- reference -->\n";
  const auto place = document->find(mark);
  ASSERT_NE(place, std::string::npos);
  EXPECT_EQ(document->substr(place + mark.size()), referenceText(allCommands()))
      << "scripts/command-reference writes it";
}

}  // namespace
}  // namespace vantrell::shell
