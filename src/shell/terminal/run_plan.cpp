#include "shell/terminal/run_plan.h"

#include <fmt/format.h>

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

/// Nothing was made of it, and no other command is about to: it has not even a title, as a task has
/// that waits for its first run.
bool isUntouched(const AppModel& model, const Uuid& project, const ChatThread& thread) {
  return !model.executions().choicesFor(ThreadExecutionKey{project, thread.id}).isDriven &&
         thread.runs.empty() && thread.entries.empty() && !thread.draftText &&
         (thread.title == newTaskTitle || thread.title == newChatTitle);
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
  plan.provider = given.choice<AgentProvider>("--provider");
  plan.mode = given.choice<GrokPermissionMode>("--mode");
  plan.workflow = given.choice<TaskWorkflowMode>("--workflow");
  plan.model = given.value("--model");
  plan.effort = given.value("--effort");
  plan.answer = given.value("--answer");
  auto attachments = attachmentsOf(context);
  if (!attachments) return std::unexpected(std::move(attachments.error()));
  plan.attachments = *std::move(attachments);
  if (const auto named = given.value("--executable")) {
    auto found = findProgram(context, *named);
    if (!found) return std::unexpected(std::move(found.error()));
    plan.executable = *std::move(found);
  }
  if (given.has("--practice")) {
    plan.practiceAgent = plan.executable.value_or(practiceAgentPath(context));
    plan.executable.reset();
    if (!files::isExecutable(*plan.practiceAgent)) {
      return usageError(fmt::format(
          "The practice agent is missing: {}. Build it with ./run, or say where it is with {}.",
          *plan.practiceAgent, practiceVariable));
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
  const auto project = std::ranges::find_if(workspaces, [&](const Workspace& each) {
    return files::standardized(each.path) == plan.folder;
  });
  if (project == workspaces.end()) return std::nullopt;
  const auto first = std::ranges::find(project->threads, false, &ChatThread::isArchived);
  if (first == project->threads.end() || !isUntouched(model, project->id, *first))
    return std::nullopt;
  return ThreadExecutionKey{project->id, first->id};
}

}  // namespace

std::expected<ThreadExecutionKey, UsageError> openTask(AppModel& model, const RunPlan& plan,
                                                       AgentProvider provider) {
  if (plan.task) {
    const auto found = existingTask(model, plan);
    if (!found) return std::unexpected(found.error());
    const auto selected =
        model.navigation().selectThread((*found)->threadID, (*found)->workspaceID);
    if (!selected) return usageError(selected.error().sentence);
  } else {
    const auto added = model.operations().addWorkspace(plan.folder);
    if (!added) return usageError(added.error().sentence);
    const auto key = model.selection().key();
    const ChatThread* thread = key ? model.tree().thread(*key) : nullptr;
    if (!thread || !isUntouched(model, key->workspaceID, *thread)) {
      const auto made = model.operations().newThread(model.selection().workspaceID());
      if (!made) return usageError(made.error().sentence);
    }
  }
  const auto key = model.selection().key();
  if (!key) return usageError("The task could not be opened. Try again.");
  if (plan.model || plan.effort) {
    const auto chosen = model.controls().chooseUnchecked(provider, *key, plan.model, plan.effort);
    if (!chosen) return usageError(chosen.error().sentence);
  }
  return *key;
}

RunChoices runChoicesOf(const RunPlan& plan) {
  return {.provider = plan.practiceAgent ? std::optional(AgentProvider::local) : plan.provider,
          .permissionMode = plan.mode,
          .workflowMode = plan.workflow,
          .executable = plan.executable,
          .practiceAgent = plan.practiceAgent,
          .isDriven = true};
}

void whetherAvailable(CommandContext& context, VantrellApp& app, AgentProvider provider,
                      std::optional<ThreadExecutionKey> task, const RunChoices& choices,
                      std::function<void(bool)> then) {
  const auto isAvailable = [&app, provider, task, choices] {
    return app.model().router().providerAvailable(provider, task, choices);
  };
  if (provider == AgentProvider::local && choices.practiceAgent) return then(isAvailable());
  app.services().prepare(provider,
                         context.whileAlive([&context, &app, isAvailable, then = std::move(then)] {
                           context.withUserPath(app.model().runtimes(), isAvailable,
                                                [isAvailable, then] { then(isAvailable()); });
                         }));
}

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

namespace {

/// One turn from the opened program to its end. Lives in the context.
class Run : public std::enable_shared_from_this<Run> {
 public:
  Run(CommandContext& context, RunPlan plan, RunVariant variant, std::function<void(int)> ended)
      : context_(context),
        plan_(std::move(plan)),
        variant_(std::move(variant)),
        ended_(std::move(ended)),
        choices_(runChoicesOf(plan_)) {}

  void begin() {
    context_.confirmFullAccess(plan_.mode == GrokPermissionMode::fullAccess, [this] {
      context_.open({}, [this](VantrellApp& app) {
        context_.acceptCommands();
        if (const auto failure = findProvider(app)) context_.finish(std::unexpected(*failure));
      });
    });
  }

 private:
  AppModel& model() { return context_.model(); }

  std::optional<UsageError> findProvider(VantrellApp& app) {
    const auto task = existingTask(model(), plan_);
    if (!task) return task.error();
    task_ = *task;
    if (plan_.executable && !choices_.provider) {
      const ChatThread* thread = task_ ? model().tree().thread(*task_) : nullptr;
      if (!thread || !thread->lastProvider) {
        return UsageError{
            "This task has no runs yet. Say whose program --executable names with --provider, as "
            "in --provider kimi."};
      }
      choices_.provider = thread->lastProvider;
    }
    if (const auto chosen = choices_.provider) {
      whetherAvailable(context_, app, *chosen, task_, choices_, [=, this, &app](bool isReady) {
        isReady ? start(*chosen) : context_.finish(usageError(whatToDoFor(app, *chosen)));
      });
      return std::nullopt;
    }
    probe([this, &app] {
      context_.withUserPath(
          model().runtimes(), [this] { return expected().has_value(); },
          [this, &app] {
            probe([this, &app] {
              const auto found = expected();
              found ? start(*found) : context_.finish(usageError(noProvider(app)));
            });
          });
    });
    return std::nullopt;
  }

  void probe(std::function<void()> then) {
    model().router().probeForNextTurn({}, task_, context_.whileAlive(std::move(then)));
  }

  std::optional<AgentProvider> expected() { return model().router().expectedProvider({}, task_); }

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
    if (!variant_.conversation || !task_) return driveOrFinish(provider);
    // A branch is made out of what the task says, and a long one takes time to read.
    model().branches().whenRead(*task_, weakly(this, [provider](Run& self, const auto& present) {
      self.task_ = present;
      self.driveOrFinish(provider);
    }));
  }

  void driveOrFinish(AgentProvider provider) {
    if (context_.hasFinished()) return;
    if (const auto failure = drive(provider)) context_.finish(std::unexpected(*failure));
  }

  UsageError drivenElsewhere() const {
    return UsageError{fmt::format(
        "Another terminal works on this task. To add a prompt for later: vantrell queue "
        "add {} \"...\"",
        shortID(task_->threadID))};
  }

  std::optional<UsageError> drive(AgentProvider provider) {
    const bool isDriven = task_ && model().executions().choicesFor(*task_).isDriven;
    if (isDriven && !variant_.conversation) return drivenElsewhere();
    const auto opened = openTask(model(), plan_, provider);
    if (!opened) return opened.error();
    auto conversation = opened;
    if (variant_.conversation) {
      conversation = variant_.conversation(model(), *opened, plan_.prompt);
    }
    if (!conversation) return conversation.error();
    const auto key = *conversation;
    if (isDriven && key == *opened) return drivenElsewhere();
    model().controls().chooseForTurns(key, choices_);
    printer_ = makePrinter(context_, "",
                           [this](std::string_view bytes) { context_.console.write(bytes); });
    auto job = std::make_unique<ConversationJob>(context_, key, *printer_, [this, key] {
      return variant_.start ? variant_.start(model(), key)
                            : model().composer().send(plan_.prompt, plan_.attachments, key);
    });
    const auto introduce = [this, key, provider](std::size_t newEntries) {
      introduceRun(context_, *printer_, key, provider, choices_,
                   model().tree().thread(key)->entries.size() - newEntries);
    };
    if (key == *opened) {
      introduce(0);
    } else {
      job->beforeFirstEntry = [this, introduce, key] {
        introduce(1);
        tellAboutWorktree(key);
      };
    }
    const bool hearsPrompts =
        context_.answers().isTerminal() && context_.console.isOutputTerminal();
    std::vector<std::unique_ptr<Job>> jobs;
    jobs.push_back(std::move(job));
    Session::begin(context_, std::move(jobs),
                   {.answerKind = plan_.answer, .hearsPrompts = hearsPrompts},
                   [this, key](int status) {
                     model().controls().chooseForTurns(key, {});
                     return ended_ ? ended_(status) : context_.finish(status);
                   });
    return std::nullopt;
  }

  /// A new conversation may work elsewhere than its source.
  void tellAboutWorktree(const ThreadExecutionKey& key) {
    for (const auto& note : model().safety().notes(key)) context_.complain(onOneLine(note));
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
  std::unique_ptr<RunObserver> printer_;
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
