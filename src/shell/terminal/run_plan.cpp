#include "shell/terminal/run_plan.h"

#include <fmt/format.h>
#include <set>

#include "engine/core/execution_table.h"
#include "engine/core/selection.h"
#include "engine/core/settings.h"
#include "engine/core/workspace_tree.h"
#include "engine/projects/task_safety.h"
#include "engine/providers/installed_runtimes.h"
#include "engine/providers/router.h"
#include "engine/providers/session_controls.h"
#include "engine/tasks/settings_operations.h"
#include "engine/tasks/task_branches.h"
#include "engine/tasks/workspace_operations.h"
#include "engine/turns/composer.h"
#include "platform/files/files.h"
#include "platform/queues/weakly.h"
#include "platform/terminal/terminal.h"
#include "platform/text/text.h"
#include "runtimes/catalog/permission_mode_texts.h"
#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/conversation_job.h"
#include "shell/terminal/json_printer.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"
#include "shell/terminal/transcript_printer.h"
#include "views/attachments.h"

namespace vantrell::shell {

namespace {

constexpr std::string_view practiceVariable = "VANTRELL_PRACTICE_AGENT";

std::optional<std::string> contradiction(const CommandArguments& arguments, bool hasTask) {
  if (arguments.has("--practice") && arguments.has("--provider")) {
    return "--practice and --provider each say who does the task. Give one of them.";
  }
  if (arguments.value("--mode") == rawText(GrokPermissionMode::fullAccess) &&
      arguments.value("--workflow") == rawText(TaskWorkflowMode::plan)) {
    return "A plan never runs with full access. Use --mode ask or --mode auto for it.";
  }
  if (arguments.has("--executable") && !arguments.has("--provider") &&
      !arguments.has("--practice") && !hasTask) {
    return "--executable names the program of an agent. Say of which with --provider kimi, glm or "
           "grok.";
  }
  return std::nullopt;
}

}  // namespace

// ---- the command line ---------------------------------------------------------------------------

std::expected<std::string, UsageError> findProgram(const CommandContext& context,
                                                   std::string_view name) {
  const bool isPath = name.find('/') != std::string_view::npos || name.starts_with('~');
  std::vector<std::string> places;
  if (isPath) {
    places.push_back(context.absolute(name));
  } else if (const auto path = context.caller.environment.find("PATH");
             path != context.caller.environment.end()) {
    for (const auto folder : text::split(path->second, ':')) {
      if (folder.starts_with('/')) places.push_back(fmt::format("{}/{}", folder, name));
    }
  }
  const auto found = std::ranges::find_if(places, files::isExecutable);
  if (found != places.end()) return *found;
  return usageError(fmt::format("{} Give --executable the path of the agent's program.",
                                isPath ? places.front() + " cannot be executed."
                                       : fmt::format("There is no program {} in PATH.", name)));
}

std::string practiceAgentPath(const CommandContext& context) {
  const auto named = context.caller.environment.find(practiceVariable);
  const bool isNamed = named != context.caller.environment.end() && !named->second.empty();
  return isNamed ? context.absolute(named->second)
                 : terminal::programFolder() + "/vantrell-practice-agent";
}

std::expected<std::vector<ChatAttachment>, UsageError> attachmentsOf(
    const CommandContext& context) {
  std::vector<ChatAttachment> all;
  for (const auto& path : context.arguments.values(attachOption.name)) {
    auto attachment = views::attachmentFor(context.absolute(path));
    if (!attachment) return usageError(attachment.error() + " Check --attach.");
    all.push_back(*std::move(attachment));
  }
  return all;
}

namespace {

std::expected<RunPlan, UsageError> readRunPlan(const CommandContext& context,
                                               std::optional<std::string> task) {
  const auto& given = context.arguments;
  if (auto wrong = contradiction(given, task.has_value())) return usageError(*std::move(wrong));
  RunPlan plan;
  plan.project = given.value(folderOption.name);
  plan.folder = context.absolute(plan.project.value_or("."));
  plan.task = std::move(task);
  if (!plan.task && !files::isFolder(plan.folder)) {
    return usageError(
        fmt::format("There is no folder {}. Give --project an existing one.", plan.folder));
  }
  auto& choices = plan.choices;
  choices.provider = given.choice<AgentProvider>("--provider");
  choices.permissionMode = given.choice<GrokPermissionMode>("--mode");
  choices.workflowMode = given.choice<TaskWorkflowMode>("--workflow");
  plan.model = given.value("--model");
  plan.effort = given.value("--effort");
  plan.answer = given.value("--answer");
  auto attachments = attachmentsOf(context);
  if (!attachments) return std::unexpected(std::move(attachments.error()));
  plan.attachments = *std::move(attachments);
  if (const auto named = given.value("--executable")) {
    auto found = findProgram(context, *named);
    if (!found) return std::unexpected(std::move(found.error()));
    choices.executable = *std::move(found);
  }
  if (given.has("--practice")) {
    choices.practiceAgent =
        std::exchange(choices.executable, std::nullopt).value_or(practiceAgentPath(context));
    if (!files::isExecutable(*choices.practiceAgent)) {
      return usageError(fmt::format(
          "The practice agent is missing: {}. Build it with ./run, or say where it is with {}.",
          *choices.practiceAgent, practiceVariable));
    }
  }
  return plan;
}

}  // namespace

void withPlan(CommandContext& context, std::optional<std::string> task, bool takesPrompt,
              std::function<void(RunPlan)> then) {
  auto plan = readRunPlan(context, std::move(task));
  if (!plan) return context.misused(plan.error());
  if (!takesPrompt) return then(*std::move(plan));
  withPrompt(context, context.arguments.words.back(),
             [plan = *std::move(plan), then = std::move(then)](std::string prompt) mutable {
               plan.prompt = std::move(prompt);
               then(std::move(plan));
             });
}

void withPrompt(CommandContext& context, const std::string& given,
                std::function<void(std::string)> then) {
  const auto take = [&context, then = std::move(then)](const std::string& text) {
    std::string prompt = text::repaired(text);
    if (!text::trimmed(prompt).empty()) return then(std::move(prompt));
    context.misused("The prompt is empty. Say what is to be done.");
  };
  return given == "-" ? context.readInput(take) : take(given);
}

// ---- the task and who does it -------------------------------------------------------------------

namespace {

/// The conversation that openTask() will select, if it exists.
std::expected<std::optional<ThreadExecutionKey>, UsageError> existingTask(const AppModel& model,
                                                                          const RunPlan& plan) {
  const auto& workspaces = model.tree().workspaces();
  if (plan.task) {
    const auto found = findTask(workspaces, *plan.task);
    if (!found) return std::unexpected(found.error());
    const auto& its = workspaceOf(workspaces, found->workspaceID);
    if (plan.project && files::standardized(its.path) != plan.folder && its.name != *plan.project) {
      return usageError(fmt::format(
          "Task {} belongs to the project {} in {}. Leave out --project, or name that one.",
          shortID(found->threadID), onOneLine(its.name), onOneLine(its.path)));
    }
    return *found;
  }
  return model.operations().untouchedThread(plan.folder);
}

/// Selects the conversation that the plan names, else an untouched one in the plan's folder.
/// Choices of the plan that belong to it are stored with it.
std::expected<ThreadExecutionKey, UsageError> openTask(AppModel& model, const RunPlan& plan,
                                                       AgentProvider provider) {
  std::optional<ThreadExecutionKey> key;
  if (plan.task) {
    const auto found = existingTask(model, plan);
    if (!found) return std::unexpected(found.error());
    key = *found;
    const auto selected = model.navigation().selectThread(key->threadID, key->workspaceID);
    if (!selected) return usageError(selected.error().sentence);
  } else {
    const auto opened = model.operations().openUntouchedThread(plan.folder);
    if (!opened) return usageError(opened.error().sentence);
    key = *opened;
  }
  if (plan.model || plan.effort) {
    const auto chosen = model.controls().chooseUnchecked(provider, *key, plan.model, plan.effort);
    if (!chosen) return usageError(chosen.error().sentence);
  }
  return *key;
}

}  // namespace

std::string whatToDoFor(const VantrellApp& app, AgentProvider provider) {
  std::string problem = "is not installed.";
  std::string_view advice = "Or say where its program is with --executable.";
  if (provider == AgentProvider::tasklet) {
    const auto& known = app.services().webhook().problem();
    problem = known.empty() ? "is not set up." : "cannot be used: " + known;
    advice = "Type: vantrell settings set tasklet-webhook";
  } else if (provider == AgentProvider::local) {
    const auto status = app.services().localRuntimeStatus();
    problem = "cannot be used: " + (status.reason() ? *status.reason() : "the harness is missing.");
    advice = "If it was the practice agent: --practice.";
  }
  return fmt::format("{} {} {} {}", ProviderRegistry::descriptor(provider).label, problem,
                     ProviderRegistry::setupHint(provider), advice);
}

std::string shortNameOf(AgentProvider provider, const RunChoices& choices) {
  const bool isPractice = provider == AgentProvider::local && choices.practiceAgent;
  return isPractice ? "Practice" : std::string(shortLabel(provider));
}

// ---- the run ------------------------------------------------------------------------------------

std::unique_ptr<RunObserver> makePrinter(CommandContext& context, std::string threadID,
                                         std::function<void(std::string_view)> write) {
  if (context.isJson()) {
    return std::make_unique<JsonPrinter>(std::move(write), std::move(threadID));
  }
  auto printer = std::make_unique<TranscriptPrinter>(std::move(write), context.style());
  if (threadID.empty()) {
    printer->status = [&context](std::string_view text) { context.console.status(text); };
  }
  return printer;
}

namespace {

/// Says who works where, how free, and how to go on with it later.
void introduceRun(CommandContext& context, RunObserver& printer, const ThreadExecutionKey& key,
                  AgentProvider provider, const RunChoices& choices, std::size_t earlierEntries) {
  const auto mode = context.model().settings().permissionModeFor(choices);
  const bool isFree = mode == GrokPermissionMode::fullAccess;
  const bool isPractice = provider == AgentProvider::local && choices.practiceAgent;
  // What the next start cannot find out by itself: the program that was named for this one.
  std::string options = isPractice ? "--practice " : "";
  if (choices.executable) {
    options =
        fmt::format("--provider {} --executable \"{}\" ", rawText(provider), *choices.executable);
  }
  const auto folder = context.model().tree().executionPath(key).value_or("");
  printer.introduced(
      {.conversation = key,
       .runtime = isPractice ? "The practice agent" : ProviderRegistry::descriptor(provider).label,
       .folder = folder,
       .earlierEntries = earlierEntries,
       .permissionNotice = isFree ? detail(mode, provider) : std::string_view(),
       .resumeCommand = context.console.asTyped(fmt::format("vantrell run {}--task", options))});
}

/// One turn, or several side by side, from the opened program to the end. Lives in the context.
class Run : public std::enable_shared_from_this<Run> {
 public:
  Run(CommandContext& context, RunPlan plan, RunVariant variant, std::function<void(int)> ended)
      : context_(context),
        plan_(std::move(plan)),
        variant_(std::move(variant)),
        ended_(std::move(ended)),
        choices_(plan_.choices) {
    const bool isPractice = choices_.practiceAgent && variant_.providers.empty();
    if (isPractice) choices_.provider = AgentProvider::local;
  }

  void begin() {
    context_.confirmFullAccess(choices_.permissionMode == GrokPermissionMode::fullAccess, [this] {
      context_.open({}, [this](VantrellApp& app) {
        context_.acceptCommands();
        findProvider(app);
      });
    });
  }

 private:
  AppModel& model() { return context_.model(); }

  void findProvider(const VantrellApp& app) {
    const auto task = existingTask(model(), plan_);
    if (!task) return context_.misused(task.error());
    task_ = *task;
    if (!variant_.providers.empty()) return checkAll(app, 0);
    if (choices_.executable && !choices_.provider) {
      const ChatThread* thread = task_ ? model().tree().thread(*task_) : nullptr;
      if (!thread || !thread->lastProvider) {
        return context_.misused(
            "This task has no runs yet. Say whose program --executable names with --provider, as "
            "in --provider kimi.");
      }
      choices_.provider = thread->lastProvider;
    }
    const auto chosen = choices_.provider;
    if (!chosen) {
      const auto take = [this, &app](const std::optional<AgentProvider>& found) {
        found ? start(*found) : context_.misused(noProvider(app));
      };
      return context_.providers().nextProvider(task_, context_.whileAlive(take));
    }
    const auto take = [this, &app, chosen](bool isReady) {
      isReady ? start(*chosen) : context_.misused(whatToDoFor(app, *chosen));
    };
    context_.providers().whetherAvailable(*chosen, task_, choices_, context_.whileAlive(take));
  }

  /// Goes on once these and those after them are known to be available.
  void checkAll(const VantrellApp& app, std::size_t place) {
    if (place == variant_.providers.size()) return start(variant_.providers.front());
    const auto provider = variant_.providers[place];
    const auto goOn = [=, this, &app](bool isReady) {
      if (isReady) return checkAll(app, place + 1);
      context_.misused(whatToDoFor(app, provider) + " Nothing was changed.");
    };
    context_.providers().whetherAvailable(provider, {}, choices_, context_.whileAlive(goOn));
  }

  std::string noProvider(const VantrellApp& app) {
    const auto route = model().settings().routingMode();
    if (!allowsAutomaticHandoff(route)) {
      return whatToDoFor(app, firstChoice(route)) +
             " The route leads to it alone; to take another: vantrell route automatic";
    }
    return "No agent is installed. \"vantrell providers\" tells how to get one; or try vantrell "
           "run --practice \"SAY:hello\".";
  }

  void start(AgentProvider provider) {
    if (context_.hasFinished()) return;  // stopped meanwhile
    if (!variant_.conversations || !task_) return drive(provider);
    // A branch is made out of what the task says, and a long one takes time to read.
    model().branches().whenRead(*task_, weakly(this, [provider](Run& self, const auto& present) {
      self.task_ = present;
      if (!self.context_.hasFinished()) self.drive(provider);
    }));
  }

  void drive(AgentProvider provider) {
    const bool isDriven = task_ && model().executions().choicesFor(*task_).isDriven;
    const auto drivenElsewhere = [this] {
      context_.misused(
          fmt::format("Another terminal works on this task. To add a prompt for later: vantrell "
                      "queue add {} \"...\"",
                      shortID(task_->threadID)));
    };
    if (isDriven && !variant_.conversations) return drivenElsewhere();
    const auto opened = openTask(model(), plan_, provider);
    if (!opened) return context_.misused(opened.error());
    const auto keys = variant_.conversations ? variant_.conversations(model(), *opened)
                                             : RunVariant::Conversations({*opened});
    if (!keys) return context_.finish(keys.error());
    if (isDriven && keys->front() == *opened) return drivenElsewhere();
    const bool areSeveral = keys->size() > 1;
    std::vector<std::unique_ptr<Job>> jobs;
    for (const auto& key : *keys) {
      model().controls().chooseForTurns(key, choices_);
      auto job = jobFor(key, areSeveral ? *model().tree().thread(key)->preferredProvider : provider,
                        key != *opened, areSeveral);
      jobs.push_back(std::move(job));
    }
    const bool hearsPrompts =
        !areSeveral && context_.answers().isTerminal() && context_.console.isOutputTerminal();
    Session::begin(context_, std::move(jobs),
                   {.answerKind = plan_.answer, .hearsPrompts = hearsPrompts},
                   [this, keys = *keys](int status) {
                     for (const auto& key : keys) model().controls().chooseForTurns(key, {});
                     return ended_ ? ended_(status) : context_.finish(status);
                   });
  }

  /// Of several, what the first does is shown as it comes, what the others do after it.
  std::unique_ptr<Job> jobFor(const ThreadExecutionKey& key, AgentProvider provider, bool isNew,
                              bool isOneOfSeveral) {
    const bool isFirst = printers_.empty();
    const std::string id = isOneOfSeveral ? key.threadID.text() : "";
    const auto write = [this, isFirst](std::string_view bytes) {
      const bool isShown = isFirst || firstHasEnded_ || context_.isJson();
      isShown ? context_.console.write(bytes) : void(held_ += bytes);
    };
    RunObserver& printer = *printers_.emplace_back(makePrinter(context_, id, write));
    auto job = std::make_unique<ConversationJob>(context_, key, printer, [this, key] {
      return variant_.start ? variant_.start(model(), key)
                            : model().composer().send(plan_.prompt, plan_.attachments, key);
    });
    job->threadID = id;
    if (isOneOfSeveral) job->name = shortNameOf(provider, choices_);
    if (isFirst) {
      job->whenTold = [this] {
        firstHasEnded_ = true;
        context_.console.write(held_.empty() ? "" : "\n" + std::exchange(held_, {}));
      };
    }
    const auto introduce = [=, this, &printer](std::size_t earlierEntries) {
      introduceRun(context_, printer, key, provider, choices_, earlierEntries);
    };
    if (!isNew) {
      introduce(model().tree().thread(key)->entries.size());
    } else {
      job->beforeFirstEntry = [this, introduce, key](std::size_t earlierEntries) {
        introduce(earlierEntries);
        tellAboutWorktree(key);
      };
    }
    return job;
  }

  /// A new conversation may work elsewhere than its source.
  void tellAboutWorktree(const ThreadExecutionKey& key) {
    for (const auto& note : model().safety().notes(key)) {
      if (notesTold_.insert(note).second) context_.complain(onOneLine(note));
    }
    if (const auto& why = model().branches().whyShared(key)) {
      context_.complain(
          fmt::format("It works in the project's own folder, not in a worktree. {}", *why));
    }
  }

  CommandContext& context_;
  const RunPlan plan_;
  const RunVariant variant_;
  const std::function<void(int)> ended_;
  RunChoices choices_;
  std::optional<ThreadExecutionKey> task_;
  std::vector<std::unique_ptr<RunObserver>> printers_;
  bool firstHasEnded_ = false;
  std::string held_;  // what the others have said until then
  std::set<std::string> notesTold_;
};

}  // namespace

void beginRun(CommandContext& context, RunPlan plan, RunVariant variant,
              std::function<void(int status)> ended) {
  const auto run =
      std::make_shared<Run>(context, std::move(plan), std::move(variant), std::move(ended));
  context.keep(run);
  run->begin();
}

}  // namespace vantrell::shell
