#include "shell/terminal/practice_tour.h"

#include <fmt/format.h>
#include <unistd.h>

#include "platform/files/files.h"
#include "platform/terminal/terminal.h"
#include "records/values/application.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/run_command.h"
#include "shell/terminal/run_session.h"

namespace vantrell::shell {

namespace {

/// What the practice agent is told to do, one thing a line.
constexpr std::string_view tourPrompt =
    "THINK:A practice agent has no model, so this thought was written for it beforehand.\n"
    "SAY:Hello! I am going to write a small note into this folder. I ask before I do so.\n"
    "PLAN:Write a note;Read it again;Count its words\n"
    "WRITE:note.txt=Vantrell asks before an agent acts.\n"
    "READ:note.txt\n"
    "RUN:wc -w note.txt\n"
    "SAY:That is all. Real agents answer in the same way, with a model behind them.";

constexpr std::string_view introduction =
    "This is a walk-through of Vantrell with a practice agent: no model, no account, no cost.\n"
    "It does one small task in a folder made for it, {}.\n"
    "You will see an answer, a thought, a plan, a file written and read, and a command.\n";

constexpr std::string_view typedAnswers =
    "Before it acts it asks you: type a number and press Enter.\n";
constexpr std::string_view givenAnswers =
    "There is nobody at a terminal to ask, so every question is answered with \"allow once\".\n";

constexpr std::string_view farewell =
    "\n"
    "That was a whole task: the › line was the prompt, ? was a question to you, ✓ a step done.\n"
    "With a real agent installed (vantrell providers tells how), go to a project and try\n"
    "    vantrell run \"explain this project\"\n"
    "All options: vantrell run --help\n";

}  // namespace

int practiceTour(const Environment& environment) {
  const std::string folder =
      files::standardized("Practice", files::standardized(applicationName, files::dataFolder()));
  if (const auto made = files::createFolders(folder); !made) {
    complain(fmt::format("{}. Make the folder writable, or name another one with XDG_DATA_HOME.",
                         made.error().description));
    return exitStatus::failed;
  }
  RunArguments arguments;
  arguments.project = folder;
  arguments.practice = true;
  arguments.mode = GrokPermissionMode::ask;
  arguments.workflow = TaskWorkflowMode::build;
  arguments.prompt = tourPrompt;
  const bool asksThePerson =
      terminal::isTerminal(STDIN_FILENO) && terminal::isTerminal(STDOUT_FILENO);
  if (!asksThePerson) arguments.answer = "allow_once";

  const auto plan = prepareRun(std::move(arguments), environment);
  if (!plan) {
    complain(plan.error().text);
    return exitStatus::usage;
  }
  tell(fmt::format(introduction, folder));
  tell(fmt::format("{}\n", asksThePerson ? typedAnswers : givenAnswers));
  const int status = performRun(*plan, environment);
  if (status != exitStatus::completed) return status;
  tell(farewell);
  return status;
}

}  // namespace vantrell::shell
