// The pages without a command: the first look around, and the walk-through.
#include <fmt/format.h>

#include "platform/files/files.h"
#include "records/values/application.h"
#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/run_plan.h"
#include "shell/terminal/runtime_survey.h"

namespace vantrell::shell {

namespace {

/// The providers whose program does the work, in the order in which one is looked for.
constexpr AgentProvider programs[] = {AgentProvider::grok, AgentProvider::codex,
                                      AgentProvider::kimi, AgentProvider::glm,
                                      AgentProvider::claude};

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
    "You will see an answer, a thought, a plan, a file written and read, and a command.\n{}\n";

constexpr std::string_view ending =
    "\n"
    "That was a whole task: the › line was the prompt, ? was a question to you, ✓ a step done.\n"
    "With a real agent installed (vantrell providers tells how), go to a project and try\n"
    "    vantrell run \"explain this project\"\n"
    "All options: vantrell run --help\n";

struct Welcome {
  explicit Welcome(CommandContext& its) : context(its), survey(its) {}

  void lookFor(std::size_t place) {
    if (place == std::size(programs)) return end();
    survey.find(programs[place], [this, place](const auto& program) {
      const auto& style = context.style();
      foundOne = foundOne || program;
      context.console.write(fmt::format("  {} {:<16} {}\n",
                                        program ? style.green("✓") : style.dim("○"),
                                        ProviderRegistry::descriptor(programs[place]).label,
                                        program ? *program : style.dim("not found")));
      lookFor(place + 1);
    });
  }

  void end() {
    if (!foundOne) {
      context.console.say(
          "\nFor real work, install one of these and sign in: vantrell providers says how.\n"
          "Until then, here is a walk-through.\n\n");
      return practiceTour(context);
    }
    context.console.say(
        "\nStart a task in the folder of a project:\n"
        "    vantrell run \"explain this project\"\n"
        "Versions, sign-in and the other agents: vantrell providers\n"
        "A walk-through without any account: vantrell --practice\n"
        "All options: vantrell run --help\n");
    context.finish(exitStatus::completed);
  }

  CommandContext& context;
  RuntimeSurvey survey;
  bool foundOne = false;
};

}  // namespace

void welcome(CommandContext& context) {
  context.console.write(
      fmt::format("{} is a workspace for software work with coding agents: it drives the\n"
                  "agents that you already use, shows what they do, and asks before they act.\n\n",
                  context.style().bold("Vantrell")));
  const auto page = std::make_shared<Welcome>(context);
  context.keep(page);
  page->lookFor(0);
}

void practiceTour(CommandContext& context) {
  const std::string folder =
      files::standardized("Practice", files::standardized(applicationName, files::dataFolder()));
  if (const auto made = files::createFolders(folder); !made) {
    return context.fail(
        fmt::format("{}. Make the folder writable, or name another one with "
                    "XDG_DATA_HOME.",
                    made.error().description));
  }
  RunPlan plan;
  plan.folder = folder;
  plan.practiceAgent = practiceAgentPath(context);
  if (!files::isExecutable(*plan.practiceAgent)) {
    return context.misused(fmt::format("The practice agent is missing: {}. Build it with ./run.",
                                       *plan.practiceAgent));
  }
  plan.mode = GrokPermissionMode::ask;
  plan.workflow = TaskWorkflowMode::build;
  plan.prompt = tourPrompt;
  const bool asksThePerson =
      terminal::isTerminal(context.caller.input) && context.console.isOutputTerminal();
  if (!asksThePerson) plan.answer = "allow_once";
  context.console.say(fmt::format(
      introduction, folder,
      asksThePerson ? "Before it acts it asks you: type a number and press Enter.\n"
                    : "There is no terminal to ask at, so every question is answered with \"allow "
                      "once\".\n"));
  beginRun(context, std::move(plan), {}, [&context](int status) {
    if (status == exitStatus::completed) context.console.say(ending);
    context.finish(status);
  });
}

}  // namespace vantrell::shell
