#include "shell/terminal/command_context.h"

#include <csignal>
#include <fmt/format.h>

#include "app/conversation_transfer.h"
#include "app/runtime_survey.h"
#include "engine/core/changes.h"
#include "engine/core/execution_table.h"
#include "engine/core/workspace_tree.h"
#include "engine/projects/task_safety.h"
#include "engine/providers/installed_runtimes.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "records/stores/workspace_store.h"
#include "runtimes/catalog/permission_mode_texts.h"
#include "shell/terminal/task_lookup.h"

namespace vantrell::shell {

/// A wait for git that is over sooner needs no word.
constexpr std::chrono::milliseconds waitForGitUnsaid{1000};
constexpr std::chrono::milliseconds betweenLooks{10};
constexpr std::chrono::milliseconds momentToFlush{200};
constexpr std::chrono::hours readersTime{24};  // to read what is left

CommandContext::CommandContext(MainQueue& queue, Caller who, std::vector<std::string_view> names,
                               CommandArguments given, std::function<void(int)> ended)
    : main(queue),
      caller(std::move(who)),
      arguments(std::move(given)),
      console(queue, caller.streams, caller.environment, std::move(names)),
      ended_(std::move(ended)) {}

CommandContext::~CommandContext() = default;

std::string CommandContext::absolute(std::string_view path) const {
  return files::standardized(files::expandingTilde(path), caller.folder);
}

bool CommandContext::hasTerminal() const {
  return terminal::isTerminal(caller.input) || terminal::isTerminal(caller.streams.output) ||
         terminal::isTerminal(caller.streams.error);
}

std::expected<std::optional<Uuid>, UsageError> CommandContext::givenProject(
    const std::vector<Workspace>& workspaces) const {
  if (!arguments.has("--project")) return std::nullopt;
  return projectHere(workspaces);
}

std::expected<Uuid, UsageError> CommandContext::projectHere(
    const std::vector<Workspace>& workspaces) const {
  return findProject(workspaces, arguments.value("--project").value_or("."), caller.folder);
}

std::expected<std::optional<ThreadExecutionKey>, UsageError> CommandContext::givenTask(
    const std::vector<Workspace>& workspaces) const {
  const auto named = arguments.value("--task");
  if (!named) return std::nullopt;
  return findTask(workspaces, *named);
}

std::expected<CommandContext::Place, UsageError> CommandContext::placeOf(
    const std::optional<std::string>& task, const std::vector<Workspace>& workspaces) const {
  if (task && arguments.has("--project")) {
    return usageError("A task has its own folder. Leave out --project.");
  }
  if (!task) {
    const auto id = projectHere(workspaces);
    if (!id) return std::unexpected(id.error());
    return Place{*id, workspaceOf(workspaces, *id).path};
  }
  const auto key = findTask(workspaces, *task);
  if (!key) return std::unexpected(key.error());
  const Workspace& workspace = workspaceOf(workspaces, key->workspaceID);
  return Place{workspace.id, executionPath(workspace, *workspace.thread(key->threadID))};
}

Outcome CommandContext::showTable(const TextTable& table, bool isEmpty,
                                  std::string_view whenEmpty) {
  if (isJson()) return exitStatus::completed;
  isEmpty ? console.say(whenEmpty) : console.write(table.text(style(), console.columns()));
  return exitStatus::completed;
}

Outcome CommandContext::tell(std::string_view words) {
  console.write(words);
  return exitStatus::completed;
}

Outcome CommandContext::report(const std::string& object, std::string_view words) {
  return tell(isJson() ? object + "\n" : std::string(words));
}

// ---- the end ------------------------------------------------------------------------------------

void CommandContext::finish(Outcome outcome) {
  if (std::exchange(hasFinished_, true)) return;
  if (!outcome) complain(outcome.error().text);
  // The engine may be in the middle of a step.
  main.post([this, status = outcome.value_or(exitStatus::usage)] {
    life_.reset();
    answers_.reset();
    reading_.reset();
    hiding_.reset();
    hidingSignals_.reset();
    closeState(status, main.uptime() + waitForGitUnsaid);
  });
}

Outcome CommandContext::refused(const Refusal& refusal) {
  complain(refusal.sentence);
  return exitStatus::failed;
}

Outcome CommandContext::after(const Result<>& done, const std::function<void()>& report) {
  if (!done) return refused(done.error());
  report();
  return exitStatus::completed;
}

void CommandContext::fail(std::string_view why) {
  complain(why);
  finish(exitStatus::failed);
}

void CommandContext::abandon(int status) {
  wasAbandoned = true;
  finish(status);
  if (isFinishingOutput_) finishOutput(status);
}

void CommandContext::waitForOthers(int status) {
  others_->whenOver = [this, status] {
    signals_.reset();
    closeState(status, main.uptime() + waitForGitUnsaid);
  };
  signals_ = caller.watchSignals([this](int) { others_->signal(SIGTERM); });
  if (wasAbandoned || endsOthers_) return others_->signal(SIGTERM);
  others_->refuseNew();
  complain("Commands of other terminals are at work here; this ends when they have.");
}

void CommandContext::closeState(int status, Duration tellsOfGit) {
  const auto again = [=, this] { closeState(status, tellsOfGit); };
  if (pool_ && !pool_->isIdle()) {  // what goes on there uses what the command keeps
    closesAgain_ = main.after(betweenLooks, again);
    return;
  }
  if (caller.app && isOpen_) {
    app().flush();                // others go on there
    model().changes().deliver();  // what could not be saved
  }
  if (app_) {
    app().flush();
    if (others_ && !others_->areOver()) return waitForOthers(status);
    others_.reset();
    // A stopped task may leave git at work on its checkpoint or worktree.
    if (model().safety().isAtWork()) {
      if (main.uptime() < tellsOfGit) {
        closesAgain_ = main.after(betweenLooks, again);
        return;
      }
      complain("Git is still at work on a checkpoint or a worktree; this ends when that is done.");
    }
    model().endAllWork();
    model().changes().deliver();  // what could not be saved
    app_.reset();
  }
  notices_ = {};
  kept_.clear();
  finishOutput(!isSaved_ && status == exitStatus::completed ? exitStatus::failed : status);
}

/// The state is free for the next start; the reader may take his time.
void CommandContext::finishOutput(int status) {
  isFinishingOutput_ = true;
  console.finish(
      wasAbandoned ? Duration(momentToFlush) : Duration(readersTime),
      [this, status](bool isWritten) { ended_(isWritten ? status : exitStatus::failed); });
}

// ---- the state ----------------------------------------------------------------------------------

std::expected<WorkspaceStore::Peek, std::string> CommandContext::stored() const {
  if (caller.app) caller.app->flush();  // so that it is stored
  auto seen = storedConversations(UserFolders{}.orOwn(), main.now());
  if (!seen) return std::unexpected(seen.error() + ". Nothing was changed.");
  return seen;
}

void CommandContext::view(const std::function<Outcome(const StateView&)>& look) {
  if (elsewhere_) return finish(look({.workspaces = *elsewhere_, .now = main.now()}));
  const auto seen = stored();
  if (!seen) return fail(seen.error());
  const auto outcome = look({.workspaces = seen->workspaces, .now = main.now()});
  if (!seen->problems->empty()) complain(*seen->problems);
  finish(outcome);
}

void CommandContext::viewTask(
    const std::function<Outcome(const StateView&, const Workspace&, const ChatThread&)>& look) {
  view([&](const StateView& state) -> Outcome {
    const auto key = findTask(state.workspaces, word(0));
    if (!key) return std::unexpected(key.error());
    return look(state, workspaceOf(state.workspaces, key->workspaceID),
                threadOf(state.workspaces, *key));
  });
}

void CommandContext::viewProject(const std::function<Outcome(const ProjectView&)>& look) {
  view([&](const StateView& state) -> Outcome {
    const auto id = projectHere(state.workspaces);
    if (!id) return std::unexpected(id.error());
    return look({.workspace = workspaceOf(state.workspaces, *id), .now = state.now});
  });
}

void CommandContext::open(VantrellOptions options, const std::function<void(VantrellApp&)>& work) {
  if (!caller.app) {
    auto started = VantrellApp::start(main, std::move(options));
    if (!started) return fail(started.error());
    app_ = std::move(*started);
    if (const auto& notice = app_->notice()) complain(*notice);
  }
  isOpen_ = true;
  notices_ = model().changes().observe([this](const ChangeBatch& batch) {
    for (const auto& notice : batch.notices) complain(notice);
    if (batch.saveFailures.empty() || !std::exchange(isSaved_, false)) return;
    complain(fmt::format(
        "What has changed could not be saved: {}. Until it can be saved, it may be lost.",
        batch.saveFailures.front()));
  });
  work(app());
}

std::expected<void, std::string> CommandContext::acceptCommands() {
  if (caller.app || others_) return {};  // the process does so already
  if (!caller.acceptCommands) return {};
  auto listening = caller.acceptCommands(app());
  if (!listening) return std::unexpected(std::move(listening.error()));
  others_ = *std::move(listening);
  return {};
}

bool CommandContext::sharesState() const {
  return caller.app || (others_ && !others_->areOver());
}

void CommandContext::change(const std::function<Outcome(AppModel&)>& change) {
  open({}, [&](VantrellApp& app) {
    // What is shown already is of another conversation, where this process works for others too.
    const auto& shown = app.model().executions().errorMessage();
    const auto before = shown;
    const auto outcome = change(app.model());
    if (outcome && shown && shown != before) return fail(*shown);
    finish(outcome);
  });
}

void CommandContext::openTask(
    const std::function<void(AppModel&, const ThreadExecutionKey&)>& work) {
  open({}, [&](VantrellApp& app) {
    const auto key = findTask(app.model().tree().workspaces(), word(0));
    key ? work(app.model(), *key) : misused(key.error());
  });
}

void CommandContext::changeTask(
    const std::function<Outcome(AppModel&, const ThreadExecutionKey&)>& work) {
  change([&](AppModel& model) -> Outcome {
    const auto key = findTask(model.tree().workspaces(), word(0));
    if (!key) return std::unexpected(key.error());
    return work(model, *key);
  });
}

void CommandContext::changeProject(const std::function<Outcome(AppModel&, const Uuid&)>& work) {
  change([&](AppModel& model) -> Outcome {
    const auto id = projectHere(model.tree().workspaces());
    if (!id) return std::unexpected(id.error());
    return work(model, *id);
  });
}

// ---- the user -----------------------------------------------------------------------------------

bool CommandContext::canAsk() const {
  return terminal::isTerminal(caller.input) && terminal::isTerminal(caller.streams.error);
}

AnswerSource& CommandContext::answers() {
  if (!answers_) {
    answers_ = std::make_unique<AnswerSource>(
        main, AnswerSource::Input{.descriptor = caller.input,
                                  .isInForeground = caller.isInForeground,
                                  .isUsedUp = reading_ != nullptr});
  }
  return *answers_;
}

void CommandContext::ask(std::string_view question,
                         std::function<void(std::optional<std::string>)> reply) {
  // First what was typed before the question is dropped: an answer to it must not be.
  answers().ask([this, reply = std::move(reply)](std::optional<std::string> line) {
    if (!line) console.prompt("\n");
    reply(std::move(line));
  });
  console.prompt(question);
}

void CommandContext::askHidden(std::string_view question,
                               std::function<void(std::optional<std::string>)> reply) {
  if (!answers().isTerminal()) return answers().ask(std::move(reply));
  hiding_ = std::make_unique<terminal::HiddenTyping>(caller.input);
  const auto end = [this, reply = std::move(reply)](const std::optional<std::string>& line) {
    hiding_.reset();
    // In a handler of theirs.
    main.post([watch = std::exchange(hidingSignals_, nullptr)] {});
    answers().withdraw();
    console.prompt("\n");
    reply(line);
  };
  // The terminal must not stay mute.
  hidingSignals_ = caller.watchSignals([end](int) { end(std::nullopt); });
  answers().ask(end);
  console.prompt(question);
}

void CommandContext::confirm(std::string_view question, std::function<void()> then) {
  if (arguments.has(yesOption.name)) return then();
  if (!canAsk()) {
    return finish(usageError(
        "There is no terminal to ask at. Give --yes to do it without being asked. Nothing was "
        "changed."));
  }
  ask(fmt::format("{} [y/N] ", question),
      [this, then = std::move(then)](const std::optional<std::string>& line) {
        const std::string answer = text::lowercased(text::trimmed(line.value_or("")));
        if (answer == "y" || answer == "yes") return then();
        complain("Nothing was changed.");
        finish(exitStatus::stopped);
      });
}

void CommandContext::confirmFullAccess(bool isAskedFor, std::function<void()> then) {
  namespace words = FullAccessConfirmation;
  if (!isAskedFor) return then();
  if (!canAsk()) {
    return finish(usageError(
        "Full Access is only turned on by a person who confirms it at a terminal. Nothing was "
        "done. The other modes are ask and auto."));
  }
  ask(fmt::format("{}\n{}\nType \"{}\" to confirm; anything else means \"{}\": ", words::title,
                  words::text, words::enable, words::cancel),
      [this, then = std::move(then)](const std::optional<std::string>& line) {
        if (line && text::trimmed(*line) == words::enable) return then();
        finish(usageError("Full Access was not confirmed. Nothing was done."));
      });
}

void CommandContext::readInput(std::function<void(std::string)> then) {
  const auto all = std::make_shared<std::string>();
  reading_ =
      LineReader::begin(main, {.descriptor = caller.input,
                               .onLine = [all](const std::string& line) { *all += line + "\n"; },
                               .onEnd = [all, then = std::move(then)] { then(std::move(*all)); },
                               .isInForeground = caller.isInForeground});
}

// ---- waiting ------------------------------------------------------------------------------------

void CommandContext::inBackground(std::function<void()> work, std::function<void()> then) {
  pool().post([&main = main, work = std::move(work), then = whileAlive(std::move(then))]() mutable {
    work();
    main.post(std::move(then));
  });
}

BackgroundPool& CommandContext::pool() {
  if (!pool_) pool_ = std::make_unique<BackgroundPool>();
  return *pool_;
}

RuntimeSurvey& CommandContext::survey() {
  const auto survey = std::make_shared<RuntimeSurvey>(main, pool(), hasTerminal());
  keep(survey);
  if (const auto& problem = survey->problem()) complain(*problem);
  return *survey;
}

ProviderCheck CommandContext::providers() {
  return {model(), app().services(), hasTerminal()};
}

}  // namespace vantrell::shell
