// The pages without a command: the first look around, and the walk-through.
#include <fmt/format.h>

#include "app/runtime_survey.h"
#include "platform/files/files.h"
#include "records/values/application.h"
#include "runtimes/catalog/provider_registry.h"
#include "runtimes/catalog/runtime_login.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/run_plan.h"

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

constexpr std::string_view ending =
    "\n"
    "That was a whole task: the › line was the prompt, ? was a question to you, ✓ a step done.\n"
    "With a real agent installed (vantrell providers tells how), go to a project and try\n"
    "    vantrell run \"explain this project\"\n";

/// Tells of each provider with a program, one after the other, whether it is there.
void lookFor(CommandContext& context, RuntimeSurvey& survey, std::size_t place, bool foundOne) {
  while (place < allAgentProviders.size() && !loginFlow(allAgentProviders[place])) ++place;
  if (place < allAgentProviders.size()) {
    const auto provider = allAgentProviders[place];
    const auto tell = [=, &context, &survey](const auto& program) {
      const auto& style = context.style();
      context.console.write(fmt::format("  {} {:<16} {}\n",
                                        program ? style.green("✓") : style.dim("○"),
                                        ProviderRegistry::descriptor(provider).label,
                                        program ? *program : style.dim("not found")));
      lookFor(context, survey, place + 1, foundOne || program);
    };
    return survey.find(provider, context.whileAlive(tell));
  }
  if (!foundOne) {
    context.console.say(
        "\nFor real work, install one of these and sign in: vantrell providers says how.\n"
        "Until then, here is a walk-through.\n\n");
    return practiceTour(context);
  }
  context.console.say(
      "\nTo start a task, in the folder of a project: vantrell run \"explain this project\"\n"
      "Versions, sign-in and the other agents: vantrell providers\n"
      "A walk-through without any account: vantrell --practice\n");
  context.finish(exitStatus::completed);
}

}  // namespace

void welcome(CommandContext& context) {
  context.console.write(
      fmt::format("{} is a workspace for software work with coding agents: it drives the\n"
                  "agents that you already use, shows what they do, and asks before they act.\n\n",
                  context.style().bold("Vantrell")));
  lookFor(context, context.survey(), 0, false);
}

void practiceTour(CommandContext& context) {
  const std::string folder =
      files::standardized("Practice", files::standardized(applicationName, files::dataFolder()));
  if (const auto made = files::createFolders(folder); !made) {
    return context.fail(made.error().description +
                        ". Make the folder writable, or name another one with XDG_DATA_HOME.");
  }
  RunPlan plan;
  plan.folder = folder;
  plan.choices.practiceAgent = practiceAgentPath(context);
  if (!files::isExecutable(*plan.choices.practiceAgent)) {
    return context.misused(fmt::format("The practice agent is missing: {}. Build it with ./run.",
                                       *plan.choices.practiceAgent));
  }
  plan.choices.permissionMode = GrokPermissionMode::ask;
  plan.choices.workflowMode = TaskWorkflowMode::build;
  plan.prompt = tourPrompt;
  const bool asksThePerson =
      terminal::isTerminal(context.caller.input) && context.console.isOutputTerminal();
  if (!asksThePerson) plan.answer = "allow_once";
  context.console.say(fmt::format(
      "This is a walk-through of Vantrell with a practice agent: no model, no account, no cost.\n"
      "It does one small task in a folder made for it, {}.\n{}\n\n",
      folder,
      asksThePerson ? "Before it acts it asks you: type a number and press Enter."
                    : "Without a terminal every question is answered with \"allow once\"."));
  beginRun(context, std::move(plan), {}, [&context](int status) {
    if (status == exitStatus::completed) context.console.say(ending);
    context.finish(status);
  });
}

}  // namespace vantrell::shell
