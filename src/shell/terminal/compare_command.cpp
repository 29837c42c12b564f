// `vantrell compare`: one prompt to two providers, side by side. What the first does is shown as it
// comes, what the second does after it.
#include <fmt/format.h>
#include <set>

#include "engine/core/workspace_tree.h"
#include "engine/projects/task_safety.h"
#include "engine/providers/session_controls.h"
#include "engine/tasks/task_branches.h"
#include "engine/tasks/workspace_operations.h"
#include "platform/values/json.h"
#include "project/git_workspace_service.h"
#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/conversation_job.h"
#include "shell/terminal/run_plan.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

/// The comparison from the opened program to what came of it. Lives in the context.
class Comparison : public std::enable_shared_from_this<Comparison> {
 public:
  Comparison(CommandContext& context, RunPlan plan, std::vector<AgentProvider> providers)
      : context_(context),
        plan_(std::move(plan)),
        choices_(runChoicesOf(plan_)),
        providers_(std::move(providers)) {
    choices_.provider.reset();  // each side has its own
  }

  /// Goes on once this provider and those after it are known to be available.
  void begin(VantrellApp& app, std::size_t place = 0) {
    if (place == providers_.size()) return compare();
    const auto provider = providers_[place];
    whetherAvailable(context_, app, provider, {}, choices_, [=, this, &app](bool isReady) {
      if (isReady) return begin(app, place + 1);
      context_.finish(usageError(whatToDoFor(app, provider) + " Nothing was changed."));
    });
  }

 private:
  struct Side {
    ThreadExecutionKey key;
    AgentProvider chosen;
    std::unique_ptr<RunObserver> printer;
    GitWorkspaceSnapshot changes;
  };
  AppModel& model() { return context_.model(); }

  void compare() {
    if (context_.hasFinished()) return;  // stopped meanwhile
    const auto task = openTask(model(), plan_, providers_.front());
    if (!task) return context_.finish(std::unexpected(task.error()));
    const auto forks = model().branches().compareNextPrompt(*task, plan_.prompt, providers_);
    if (!forks) return context_.finish(context_.refused(forks.error()));
    const std::size_t known = model().tree().thread(*task)->entries.size();
    for (const auto& key : *forks) {
      model().controls().chooseForTurns(key, choices_);
      sides_.push_back({key, *model().tree().thread(key)->preferredProvider, nullptr, {}});
    }
    // One that was only made to be compared is of no more use.
    if (!plan_.task && known == 0) {
      static_cast<void>(
          model().navigation().selectThread(sides_[0].key.threadID, sides_[0].key.workspaceID));
      static_cast<void>(model().operations().deleteThread(task->threadID, task->workspaceID));
    }
    std::vector<std::unique_ptr<Job>> jobs;
    for (auto& side : sides_) {
      const bool isFirst = &side == &sides_.front();
      const auto id = side.key.threadID.text();
      side.printer = makePrinter(context_, id, [this, isFirst](std::string_view bytes) {
        const bool isShown = isFirst || firstHasEnded_ || context_.isJson();
        isShown ? context_.console.write(bytes) : void(held_ += bytes);
      });
      auto job = std::make_unique<ConversationJob>(context_, side.key, *side.printer, nullptr);
      job->name = nameOf(side);
      job->threadID = id;
      job->beforeFirstEntry = [this, &side, known] { introduce(side, known); };
      if (isFirst) job->whenTold = [this] { showSecond(); };
      jobs.push_back(std::move(job));
    }
    Session::begin(context_, std::move(jobs), {.answerKind = plan_.answer},
                   [this](int status) { ended(status); });
  }

  std::string nameOf(const Side& side) const {
    const bool isPractice = side.chosen == AgentProvider::local && choices_.practiceAgent;
    return std::string(isPractice ? "Practice" : shortLabel(side.chosen));
  }

  void introduce(const Side& side, std::size_t known) {
    introduceRun(context_, *side.printer, side.key, side.chosen, choices_, known);
    for (const auto& note : model().safety().notes(side.key)) {
      if (notesTold_.insert(note).second) context_.complain(onOneLine(note));
    }
  }

  void showSecond() {
    firstHasEnded_ = true;
    context_.console.write(held_.empty() ? "" : "\n" + std::exchange(held_, {}));
  }

  void ended(int status) {
    for (const auto& side : sides_) model().controls().chooseForTurns(side.key, {});
    if (context_.wasAbandoned) return context_.finish(status);
    std::vector<std::string> folders;
    for (const auto& side : sides_) {
      const ChatThread* thread = model().tree().thread(side.key);  // unless it was deleted
      folders.push_back(thread ? thread->isolatedWorkspacePath.value_or("") : "");
    }
    context_.inBackground(
        [this, folders] {
          for (std::size_t i = 0; i < folders.size(); ++i) {
            if (!folders[i].empty()) sides_[i].changes = GitWorkspaceService::read(folders[i]);
          }
        },
        [this, status] {
          for (const auto& side : sides_) {
            const ChatThread* thread = model().tree().thread(side.key);
            if (!thread || !thread->isolatedWorkspacePath) continue;
            context_.isJson() ? tellAsJson(side, *thread) : tell(side, *thread);
          }
          context_.finish(status);
        });
  }

  void tell(const Side& side, const ChatThread& thread) {
    const auto count = side.changes.files.size();
    context_.console.say(fmt::format("\n{}: {} changed. To see the changes: vantrell diff {}\n",
                                     context_.style().bold(nameOf(side)), counted(count, "file"),
                                     shortID(thread.id)));
  }

  void tellAsJson(const Side& side, const ChatThread& thread) {
    Json::Array files;
    for (const auto& file : side.changes.files) {
      JsonObject object{{"path", file.path}, {"status", file.status}};
      setIfKnown(object, "additions", file.additions);
      setIfKnown(object, "deletions", file.deletions);
      files.push_back(std::move(object));
    }
    // Another provider may have taken over.
    const RunRecord* run = thread.latestRun();
    JsonObject result{{"event", "result"},
                      {"workspaceID", side.key.workspaceID.text()},
                      {"threadID", thread.id.text()},
                      {"comparisonGroupID", thread.comparisonGroupID->text()},
                      {"chosen", rawText(side.chosen)},
                      {"provider", rawText(run && run->provider ? *run->provider : side.chosen)},
                      {"path", *thread.isolatedWorkspacePath}};
    if (run) result.set("status", rawText(run->status));
    result.set("files", std::move(files));
    result.set("additions", side.changes.additions());
    result.set("deletions", side.changes.deletions());
    context_.writeJson(result);
  }

  CommandContext& context_;
  const RunPlan plan_;
  RunChoices choices_;
  const std::vector<AgentProvider> providers_;
  std::vector<Side> sides_;
  bool firstHasEnded_ = false;
  std::string held_;  // what the second has said until then
  std::set<std::string> notesTold_;
};

void compare(CommandContext& context) {
  std::vector<AgentProvider> providers;
  for (const auto& word : context.arguments.values("--with")) {
    const auto provider = *fromRawText<AgentProvider>(word);
    if (std::ranges::find(providers, provider) == providers.end()) providers.push_back(provider);
  }
  if (providers.size() != 2) {
    return context.misused(
        "A comparison takes two providers: vantrell compare \"prompt\" --with codex "
        "--with claude");
  }
  withPlan(context, context.arguments.value(taskOption.name), true,
           [&context, providers](const RunPlan& plan) {
             const bool isFree = plan.mode == GrokPermissionMode::fullAccess;
             context.confirmFullAccess(isFree, [&context, providers, plan] {
               const auto comparison = std::make_shared<Comparison>(context, plan, providers);
               context.keep(comparison);
               context.open({}, [&](VantrellApp& app) { comparison->begin(app); });
             });
           });
}

constexpr CommandOption options[] = {
    {"--with", "ID", "one of the providers, as in codex; given twice", choicesOf<AgentProvider>},
    folderOption,
    taskOption,
    {"--practice", "", "let the practice agent stand in for local"},
    modeOption,
    workflowOption,
    answerOption,
    {"--json", "", "for scripts: one JSON object a line, each with the task's ID"},
};

constexpr Command commands[] = {
    {.name = "compare",
     .parameters = "\"prompt\"",
     .summary = "give one prompt to two providers, each in a worktree of its own",
     .options = options,
     .begin = compare,
     .introduction =
         "Makes two tasks, in the project or out of that of --task, and sends the prompt to a\n"
         "provider in each, at the same time. Each works in a Git worktree with a copy of all\n"
         "that is not committed; without Git there is no comparison. What the first does is shown\n"
         "as it comes and what the second does after it, and at last how many files each has\n"
         "changed.",
     .closing =
         "Ctrl-C stops both, a second one leaves at once. A prompt of - is read from standard\n"
         "input.\n"
         "\n"
         "Examples:\n"
         "  vantrell compare \"find out why the tests fail\" --with codex --with claude\n"
         "  vantrell compare --task 3F2A \"now fix it\" --with kimi --with codex"},
};

}  // namespace

std::span<const Command> compareCommands() {
  return commands;
}

}  // namespace vantrell::shell
