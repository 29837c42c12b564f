// `vantrell automations`: the prompts that are run again and again, and what their runs came to.
#include <fmt/format.h>

#include "automations/automations.h"
#include "engine/core/workspace_tree.h"
#include "platform/text/text.h"
#include "shell/terminal/automation_words.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/conversation_job.h"
#include "shell/terminal/run_plan.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

/// The recipe that the first word names.
std::expected<const AutomationRecipe*, UsageError> findRecipe(
    const CommandContext& context, const std::vector<AutomationRecipe>& all) {
  return findByID(all, context.word(0), "automation", "automations");
}

/// Takes the state and ends with what `work` returns.
void withRecipe(CommandContext& context,
                const std::function<Outcome(Automations&, const AutomationRecipe&)>& work) {
  context.open({}, [&](VantrellApp& app) {
    Automations& automations = app.automations();
    const auto recipe = findRecipe(context, automations.automations());
    if (!recipe) return context.misused(recipe.error());
    context.finish(work(automations, AutomationRecipe(**recipe)));
  });
}

// ---- the list -----------------------------------------------------------------------------------

Json dateOrNull(const std::optional<Date>& date) {
  return date ? Json(date->secondsSinceReference()) : Json();
}

JsonObject asJson(const AutomationRecipe& recipe) {
  return withoutNulls(
      {{"id", recipe.id.text()},
       {"name", recipe.name},
       {"prompt", recipe.prompt},
       {"workspaceID", recipe.workspaceID.text()},
       {"provider", recipe.provider ? Json(rawText(*recipe.provider)) : Json()},
       {"trigger", rawText(recipe.trigger)},
       {"enabled", recipe.enabled},
       {"nextRunAt", dateOrNull(recipe.nextRunAt)},
       {"lastRunAt", dateOrNull(recipe.lastRunAt)},
       {"requiresApproval", recipe.requiresApproval},
       {"hostID", recipe.preferredHostID ? Json(recipe.preferredHostID->text()) : Json()}});
}

/// Characters: more than a line of a terminal, and quick to lay out.
constexpr std::size_t shownOfPrompt = 300;

std::string projectName(const std::vector<Workspace>& workspaces, const Uuid& id) {
  const auto found = std::ranges::find(workspaces, id, &Workspace::id);
  return found == workspaces.end() ? "(closed)" : found->name;
}

std::string nextLook(const AutomationRecipe& recipe, Date now) {
  if (!recipe.enabled) return "off";
  if (recipe.trigger == AutomationTrigger::manual) return "by hand";
  return isDue(recipe, now) ? "due" : views::minuteOf(*recipe.nextRunAt);
}

Outcome listRecipes(CommandContext& context, const std::vector<AutomationRecipe>& recipes,
                    const std::vector<Workspace>& workspaces) {
  const Date now = context.main.now();
  const auto cells = [&](const AutomationRecipe& recipe) -> std::vector<TableCell> {
    const bool isOn = recipe.enabled;
    return {idCell(recipe.id),
            {recipe.name, isOn ? nullptr : look::dim},
            {projectName(workspaces, recipe.workspaceID)},
            {std::string(rawText(recipe.trigger))},
            {nextLook(recipe, now), isOn && isDue(recipe, now) ? look::yellow : nullptr},
            {recipe.lastRunAt ? ago(*recipe.lastRunAt, now) : "never", look::dim},
            {std::string(text::firstCharacters(recipe.prompt, shownOfPrompt))}};
  };
  return context.showList(
      recipes,
      TextTable(
          {{"ID"}, {"NAME", 12}, {"PROJECT", 8}, {"WHEN"}, {"NEXT"}, {"LAST"}, {"PROMPT", 16}}),
      [](const AutomationRecipe& recipe) { return asJson(recipe); }, cells,
      "No automations. To create one: vantrell automations create NAME \"prompt\" --every daily\n");
}

void list(CommandContext& context) {
  context.view([&](const StateView& state) {
    const auto recipes = knownRecipes(context);
    const auto outcome = listRecipes(context, recipes, state.workspaces);
    tellDueRecipes(context, recipes);
    return outcome;
  });
}

Outcome showOne(CommandContext& context, Automations& automations, const Uuid& id) {
  std::vector<AutomationRecipe> one;
  for (const auto& each : automations.automations()) {
    if (each.id == id) one.push_back(each);
  }
  return listRecipes(context, one, context.model().tree().workspaces());
}

// ---- changes ------------------------------------------------------------------------------------

constexpr CommandOption everyOption{
    "--every", "WHEN",
    "hourly, daily, weekly, projectChange (when git sees one) or manual (default)",
    choicesOf<AutomationTrigger>};
constexpr CommandOption recipeProviderOption{"--provider", "ID",
                                             "who does it (default: whoever would do a new task)",
                                             choicesOf<AgentProvider>};
constexpr CommandOption hostOption{"--host", "HOST", "the ID of the fleet host that does it"};

void create(CommandContext& context) {
  const auto host = context.arguments.value(hostOption.name);
  std::optional<Uuid> hostID;
  if (host && !(hostID = Uuid::parse(*host))) {
    return context.misused(fmt::format("\"{}\" is not the ID of a host.", onOneLine(*host)));
  }
  withPrompt(context, context.word(1), [&context, hostID](const std::string& prompt) {
    context.open({}, [&](VantrellApp& app) {
      const auto project = context.projectHere(context.model().tree().workspaces());
      if (!project) return context.misused(project.error());
      const auto created = app.automations().createAutomation(
          {.name = text::repaired(context.word(0)),
           .prompt = prompt,
           .workspaceID = *project,
           .provider = context.arguments.choice<AgentProvider>(recipeProviderOption.name),
           .trigger = context.arguments.choice<AutomationTrigger>(everyOption.name)
                          .value_or(AutomationTrigger::manual),
           .preferredHostID = hostID});
      if (!created) return context.finish(context.refused(created.error()));
      context.finish(showOne(context, app.automations(), *created));
    });
  });
}

template <bool isOn>
void turn(CommandContext& context) {
  withRecipe(context, [&](Automations& automations, const AutomationRecipe& recipe) -> Outcome {
    const auto done = automations.setEnabled(recipe.id, isOn);
    return done ? showOne(context, automations, recipe.id) : context.refused(done.error());
  });
}

void removeRecipe(CommandContext& context) {
  context.open({}, [&](VantrellApp& app) {
    Automations& automations = app.automations();
    const auto recipe = findRecipe(context, automations.automations());
    if (!recipe) return context.misused(recipe.error());
    const std::string name = onOneLine((*recipe)->name);
    context.confirm(fmt::format("Remove the automation \"{}\"? Its tasks stay.", name),
                    [&context, &automations, id = (*recipe)->id, name] {
                      context.finish(context.after(automations.removeAutomation(id), [&] {
                        context.tell(fmt::format("{} is removed.\n", name));
                      }));
                    });
  });
}

// ---- a run by hand ------------------------------------------------------------------------------

/// Shows the run of the recipe's new conversation to its end.
class FollowedRun {
 public:
  FollowedRun(CommandContext& context, const ThreadExecutionKey& key)
      : printer_(makePrinter(context, key.threadID.text(), [&context](std::string_view bytes) {
          context.console.write(bytes);
        })) {
    if (!context.isJson()) {
      context.complain(fmt::format("task {}", shortID(key.threadID)));
    }
    std::vector<std::unique_ptr<Job>> jobs;
    jobs.push_back(
        std::make_unique<ConversationJob>(context, key, *printer_, [] { return Result<>(); }));
    Session::begin(context, std::move(jobs),
                   {.answerKind = context.arguments.value(answerOption.name)},
                   [&context](int status) { context.finish(status); });
  }

 private:
  const std::unique_ptr<RunObserver> printer_;
};

void runNow(CommandContext& context) {
  context.open({}, [&](VantrellApp& app) {
    const auto recipe = findRecipe(context, app.automations().automations());
    if (!recipe) return context.misused(recipe.error());
    const auto follow = [&context](const Automations::Begun& begun) {
      if (!begun) return context.finish(context.refused(begun.error()));
      if (!*begun) return context.finish(context.tell("The host has the prompt.\n"));
      context.keep(std::make_shared<FollowedRun>(context, **begun));
    };
    const auto run = [&context, &app, id = (*recipe)->id, follow] {
      app.automations().runAutomation(id, context.whileAlive(follow));
    };
    // A timer or a service finds the agents' programs only in the user's own PATH.
    if (context.hasTerminal()) return run();
    app.model().runtimes().readUserPath(context.whileAlive(run));
  });
}

// ---- the log ------------------------------------------------------------------------------------

struct LoggedRun {
  const Workspace* workspace;
  const ChatThread* thread;
};

/// The conversations that recipes have begun, the newest first.
void log(CommandContext& context) {
  context.view([&](const StateView& state) -> Outcome {
    const auto recipes = knownRecipes(context);
    const AutomationRecipe* only = nullptr;
    if (!context.arguments.words.empty()) {
      const auto found = findRecipe(context, recipes);
      if (!found) return std::unexpected(found.error());
      only = *found;
    }
    std::vector<LoggedRun> all;
    for (const auto& workspace : state.workspaces) {
      if (only && workspace.id != only->workspaceID) continue;
      for (const auto& thread : workspace.threads) {
        const bool isMeant =
            only ? thread.title == threadTitle(*only) : thread.title.starts_with(threadTitle({}));
        if (isMeant) all.push_back({&workspace, &thread});
      }
    }
    std::ranges::stable_sort(all, [](const LoggedRun& one, const LoggedRun& other) {
      return one.thread->createdAt > other.thread->createdAt;
    });
    all.resize(
        std::min(all.size(), context.arguments.count(limitOption.name).value_or(all.size())));
    const auto cells = [&](const LoggedRun& each) -> std::vector<TableCell> {
      const RunRecord* run = each.thread->latestRun();
      const auto row = run ? views::runRow(*run, state.now) : views::RunRow();
      return {
          idCell(each.thread->id),
          {each.workspace->name},
          {each.thread->title.substr(std::min(threadTitle({}).size(), each.thread->title.size()))},
          stateCell(row.state),
          {row.provider ? std::string(shortLabel(*row.provider)) : ""},
          {ago(each.thread->createdAt, state.now), look::dim},
          {row.lasted},
          {row.message, look::dim}};
    };
    return context.showList(
        all,
        TextTable({{"TASK"},
                   {"PROJECT", 8},
                   {"AUTOMATION", 12},
                   {"STATE"},
                   {"WITH"},
                   {"BEGUN"},
                   {"LASTED"},
                   {"MESSAGE", 8}}),
        [](const LoggedRun& each) { return taskAsJson(*each.workspace, *each.thread); }, cells,
        "No automation has run yet.\n");
  });
}

// ---- their help ---------------------------------------------------------------------------------

constexpr CommandOption createOptions[] = {everyOption, projectOption, recipeProviderOption,
                                           hostOption, jsonOption};
constexpr CommandOption runOptions[] = {answerOption, jsonOption};
constexpr CommandOption logOptions[] = {limitOption, jsonOption};
constexpr Command subcommands[] = {
    {"create", "NAME \"prompt\"", "create one; a prompt of - is read from standard input",
     createOptions, create},
    {"enable", "ID", "run it by itself again; one whose time has passed runs within a minute",
     onlyJson, turn<true>},
    {"disable", "ID", "run it no more by itself", onlyJson, turn<false>},
    {"run", "ID", "run it now, and show what its agent does", runOptions, runNow},
    {"remove", "ID", "remove it; the tasks that it has begun stay", onlyYes, removeRecipe},
    {"log", "[ID]", "the runs of all, or of one, the newest first", logOptions, log},
};

constexpr Command commands[] = {
    {"automations", "", "prompts that run at set times or when a project changes", onlyJson, list,
     "An automation is a prompt for one project that runs every hour, day or week, or when git\n"
     "sees a change there. Each run is a new task. They run while \"vantrell serve\" runs; what\n"
     "became due meanwhile runs once when it starts. Their agents are told to ask before anything\n"
     "destructive: \"vantrell activity\" shows what waits for an answer.",
     "Examples:\n"
     "  vantrell automations create \"Nightly tests\" \"run the tests, mend what fails\" --every "
     "daily\n"
     "  vantrell automations log --limit 10",
     subcommands},
};

}  // namespace

std::span<const Command> automationCommands() {
  return commands;
}

}  // namespace vantrell::shell
