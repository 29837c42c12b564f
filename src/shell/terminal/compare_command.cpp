// `vantrell compare`: one prompt to two providers, side by side. While they work each tells in
// single lines what it does, with its name in front; what it said comes whole when it has ended.
#include <fmt/format.h>
#include <set>

#include "engine/core/workspace_tree.h"
#include "engine/projects/task_safety.h"
#include "engine/providers/session_controls.h"
#include "engine/tasks/settings_operations.h"
#include "engine/tasks/task_branches.h"
#include "engine/tasks/workspace_operations.h"
#include "platform/values/json.h"
#include "project/git_workspace_service.h"
#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/activity_lines.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/conversation_job.h"
#include "shell/terminal/json_printer.h"
#include "shell/terminal/run_plan.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"
#include "shell/terminal/transcript_printer.h"

namespace vantrell::shell {

namespace {

constexpr std::size_t filesShown = 20;  // of each of the two
/// Of a stop; the line of the run's end says it as well.
constexpr std::string_view stoppedText = "Stopped by you.";

/// Tells in single lines what one of the two does, and at the end what it said.
class ComparisonPrinter final : public RunObserver {
 public:
  /// `thread` returns the conversation, of which the first `known` entries are not news.
  ComparisonPrinter(Console& console, std::string name, std::function<const ChatThread*()> thread,
                    std::size_t known)
      : console_(console), name_(std::move(name)), thread_(std::move(thread)), known_(known) {}

  void introduced(const RunIntroduction& introduction) override {
    const auto folder = onOneLine(withTilde(std::string(introduction.folder)));
    tell(style_.dim(fmt::format("task {}{}{}", shortID(introduction.conversation.threadID),
                                folder.empty() ? "" : " in ", folder)));
    if (!introduction.permissionNotice.empty()) tell(style_.yellow(introduction.permissionNotice));
  }
  void entryAdded(const ChatEntry& entry) override {
    if (entry.text == stoppedText) return;
    if (entry.kind == ChatEntryKind::system) {
      return tell(style_.yellow(fmt::format("• {}", onOneLine(entry.text))));
    }
    const std::string status = entry.status.value_or("pending");
    if (entry.kind != ChatEntryKind::tool || isOpenToolStatus(status)) return;
    if (std::exchange(toldTools_[entry.id], status) == status) return;
    tell(toolLine(entry, onOneLine(entry.title.value_or("A tool")), style_, columnsOfTool));
  }
  void entryReplaced(const ChatEntry& entry) override { entryAdded(entry); }
  void runChanged(const RunRecord& run) override {
    const bool isUnderWay =
        run.status == RunRecordStatus::starting || run.status == RunRecordStatus::running;
    if (!isUnderWay || !run.statusMessage || *run.statusMessage == lastStatus_) return;
    lastStatus_ = *run.statusMessage;
    tell(style_.dim(onOneLine(lastStatus_)));
  }
  void ended(const RunRecord* run) override {
    const ChatThread* thread = thread_();
    if (!thread || !run) return;
    std::string page = fmt::format(
        "\n{}\n\n", style_.bold(fmt::format("━━ {} · task {} ━━", name_, shortID(thread->id))));
    TranscriptPrinter printer([&page](std::string_view bytes) { page += bytes; }, style_);
    printer.isReview = true;
    for (std::size_t i = known_; i < thread->entries.size(); ++i) {
      const ChatEntry& entry = thread->entries[i];
      if (entry.kind != ChatEntryKind::user && entry.text != stoppedText) printer.entryAdded(entry);
    }
    printer.ended(run);
    console_.write(page + "\n");
  }

 private:
  static constexpr int columnsOfTool = 1000;
  void tell(std::string_view styled) { console_.write(namedLine(style_, name_, styled)); }

  Console& console_;
  const TerminalStyle style_ = console_.style();
  const std::string name_;
  const std::function<const ChatThread*()> thread_;
  const std::size_t known_;
  std::string lastStatus_;
  std::map<std::string, std::string, std::less<>> toldTools_;  // status, by entry
};

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

  void begin(VantrellApp& app) {
    app_ = &app;
    requireProvider(0);
  }

 private:
  struct Side {
    ThreadExecutionKey key;
    AgentProvider chosen;
    std::string name;
    GitWorkspaceSnapshot changes;
  };
  AppModel& model() { return app_->model(); }

  /// One after the other, then goes on.
  void requireProvider(std::size_t place) {
    if (place == providers_.size()) return compare();
    whetherAvailable(context_, *app_, providers_[place], {}, choices_, [this, place](bool isReady) {
      if (isReady) return requireProvider(place + 1);
      context_.finish(usageError(whatToDoFor(*app_, providers_[place]) + " Nothing was changed."));
    });
  }

  void compare() {
    if (context_.hasFinished()) return;  // stopped meanwhile
    const auto task = openTask(model(), plan_, providers_.front());
    if (!task) return context_.finish(std::unexpected(task.error()));
    const auto forks = model().branches().compareNextPrompt(*task, plan_.prompt, providers_);
    if (!forks) return context_.finish(context_.refused(forks.error()));
    const std::size_t known = model().tree().thread(*task)->entries.size();
    for (const auto& key : *forks) {
      model().controls().chooseForTurns(key, choices_);
      const auto provider = *model().tree().thread(key)->preferredProvider;
      sides_.push_back({key, provider, nameOf(provider), {}});
    }
    // One that was only made to be compared is of no more use.
    if (!plan_.task && known == 0) {
      static_cast<void>(
          model().operations().selectThread(sides_[0].key.threadID, sides_[0].key.workspaceID));
      static_cast<void>(model().operations().deleteThread(task->threadID, task->workspaceID));
    }
    std::vector<std::unique_ptr<Job>> jobs;
    for (auto& side : sides_) {
      makePrinter(side, known);
      auto job = std::make_unique<ConversationJob>(context_, side.key, *printers_.back(), nullptr);
      job->name = side.name;
      job->threadID = side.key.threadID.text();
      job->beforeFirstEntry = [this, &side, &printer = *printers_.back()] {
        introduce(side, printer);
      };
      jobs.push_back(std::move(job));
    }
    Session::begin(context_, std::move(jobs), {.answerKind = plan_.answer},
                   [this](int status) { ended(status); });
  }

  std::string nameOf(AgentProvider provider) const {
    const bool isPractice = provider == AgentProvider::local && choices_.practiceAgent;
    return std::string(isPractice ? "Practice" : shortLabel(provider));
  }

  /// The one that worked last: another may have taken over.
  AgentProvider workerOf(const Side& side) {
    const RunRecord* run = model().tree().latestRun(side.key);
    return run && run->provider ? *run->provider : side.chosen;
  }

  void makePrinter(const Side& side, std::size_t known) {
    if (context_.isJson()) {
      printers_.push_back(std::make_unique<JsonPrinter>(
          [this](std::string_view bytes) { context_.console.write(bytes); },
          side.key.threadID.text()));
    } else {
      printers_.push_back(std::make_unique<ComparisonPrinter>(
          context_.console, side.name,
          [this, key = side.key] { return model().tree().thread(key); }, known));
    }
  }

  void introduce(const Side& side, RunObserver& printer) {
    const ChatThread& thread = *model().tree().thread(side.key);
    const std::string folder = thread.isolatedWorkspacePath.value_or("");
    printer.introduced({.conversation = side.key,
                        .runtime = side.name,
                        .folder = folder,
                        .permissionNotice = permissionNotice(model(), side.chosen, choices_)});
    for (const auto& note : model().safety().notes(side.key)) {
      if (notesTold_.insert(note).second) context_.complain(onOneLine(note));
    }
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
    const auto& style = context_.style();
    const auto state = stateCell(views::taskState(thread));
    const auto worker = workerOf(side);
    std::string text = fmt::format("{} {}  {}{}\n", style.bold(fmt::format("{:<8}", side.name)),
                                   style.cyan(shortID(thread.id)),
                                   state.look ? (style.*state.look)(state.text) : state.text,
                                   worker == side.chosen ? "" : ", by " + nameOf(worker));
    text += fmt::format("  {}\n", style.dim(onOneLine(withTilde(*thread.isolatedWorkspacePath))));
    const auto& files = side.changes.files;
    if (files.empty()) text += style.dim("  nothing changed") + "\n";
    for (std::size_t i = 0; i < std::min(files.size(), filesShown); ++i) {
      text += fmt::format("  {} {}", files[i].status, onOneLine(files[i].path));
      if (files[i].additions) text += " " + style.green(fmt::format("+{}", *files[i].additions));
      if (files[i].deletions) text += " " + style.red(fmt::format("-{}", *files[i].deletions));
      text += "\n";
    }
    if (files.size() > filesShown) {
      text += style.dim(fmt::format("  … {} more files\n", files.size() - filesShown));
    }
    const auto next = context_.console.asTyped(
        fmt::format("  All of it: vantrell diff {0}   To continue: vantrell run --task {0} \"...\"",
                    shortID(thread.id)));
    context_.console.write(text + style.dim(next) + "\n");
  }

  void tellAsJson(const Side& side, const ChatThread& thread) {
    Json::Array files;
    for (const auto& file : side.changes.files) {
      JsonObject object{{"path", file.path}, {"status", file.status}};
      if (file.additions) object.set("additions", *file.additions);
      if (file.deletions) object.set("deletions", *file.deletions);
      files.push_back(std::move(object));
    }
    JsonObject result{{"event", "result"},
                      {"workspaceID", side.key.workspaceID.text()},
                      {"threadID", thread.id.text()},
                      {"comparisonGroupID", thread.comparisonGroupID->text()},
                      {"chosen", rawText(side.chosen)},
                      {"provider", rawText(workerOf(side))},
                      {"path", *thread.isolatedWorkspacePath}};
    if (const RunRecord* run = thread.latestRun()) result.set("status", rawText(run->status));
    result.set("files", std::move(files));
    result.set("additions", side.changes.additions());
    result.set("deletions", side.changes.deletions());
    context_.console.write(json::write(result) + "\n");
  }

  CommandContext& context_;
  const RunPlan plan_;
  RunChoices choices_;
  const std::vector<AgentProvider> providers_;
  VantrellApp* app_ = nullptr;
  std::vector<Side> sides_;
  std::vector<std::unique_ptr<RunObserver>> printers_;
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
  auto plan = readRunPlan(context, context.arguments.value(taskOption.name));
  if (!plan) return context.misused(plan.error());
  withPrompt(context, context.word(0),
             [&context, providers, plan = *plan](std::string prompt) mutable {
               plan.prompt = std::move(prompt);
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
         "that is not committed; without Git there is no comparison. While they work, each tells\n"
         "what it does in single lines; what it said comes when it has ended, and at last where\n"
         "its work is and which files differ there from the last commit.",
     .closing =
         "Ctrl-C stops both, a second one leaves at once. A prompt of - is read from standard\n"
         "input.\n"
         "\n"
         "Exit status: 0 both completed, 1 one failed, 2 wrong usage, 130 stopped.\n"
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
