// What a command is given by its caller, and how it reports its end. A command begins on its
// caller's main queue and returns; it works through callbacks, with the output, input, folder and
// environment that it was given, which need not be those of this process. All of it lives until the
// command has reported its end; what it gives to others to call, it gives as whileAlive(). Main
// queue.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/app_model.h"
#include "app/provider_check.h"
#include "app/vantrell_app.h"
#include "engine/core/changes.h"
#include "engine/core/refusal.h"
#include "platform/queues/line_reader.h"
#include "platform/terminal/terminal.h"
#include "platform/values/json.h"
#include "records/stores/workspace_store.h"
#include "shell/terminal/answer_source.h"
#include "shell/terminal/command.h"
#include "shell/terminal/console.h"
#include "shell/terminal/text_table.h"

namespace vantrell {
class RuntimeSurvey;
}

namespace vantrell::shell {

/// The conversations for a command that only looks.
struct StateView {
  const std::vector<Workspace>& workspaces;  // General first
  Date now;
};
struct ProjectView {
  const Workspace& workspace;
  Date now;
};
struct TaskView {
  const Workspace& workspace;
  const ChatThread& thread;
  Date now;
};

/// Commands of other processes that this one carries out. Main queue.
class OtherCommands {
 public:
  virtual ~OtherCommands() = default;
  virtual bool areOver() const = 0;
  virtual void refuseNew() = 0;
  /// Gives each of them a signal, as if it had been sent to its caller, and refuses new ones.
  virtual void signal(int number) = 0;
  /// Called when the last one has ended. It may destroy this object.
  std::function<void()> whenOver;
};

/// Who has typed the command, and where.
struct Caller {
  int input = 0;
  Console::Streams streams;
  std::string folder;  // absolute
  Environment environment;
  /// Hears SIGINT, SIGTERM and SIGHUP in place of their default action, while the answer lives. The
  /// default action ends the command: abandon().
  std::function<std::shared_ptr<void>(std::function<void(int signal)>)> watchSignals;
  /// Whether what is typed is for this command. Any thread. Unset: whether this process is in the
  /// foreground of the terminal.
  std::function<bool()> isInForeground{};
  /// The state, where the process that carries the command out owns it already; null: the command
  /// opens it, and closes it at its end.
  VantrellApp* app = nullptr;
  /// Else: begins to carry out the commands of other processes, with the state that was opened. The
  /// error is a sentence.
  std::function<std::expected<std::unique_ptr<OtherCommands>, std::string>(VantrellApp&)>
      acceptCommands{};
};

class CommandContext {
 public:
  /// `ended` is called once, on the main queue, when everything is written and nothing of the
  /// command goes on; it may destroy the context.
  CommandContext(MainQueue& main, Caller caller, std::vector<std::string_view> commandNames,
                 CommandArguments given, std::function<void(int status)> ended);
  ~CommandContext();
  CommandContext(const CommandContext&) = delete;
  CommandContext& operator=(const CommandContext&) = delete;

  MainQueue& main;
  const Caller caller;
  const CommandArguments arguments;
  Console console;
  /// The user would not wait for the end of what goes on.
  bool wasAbandoned = false;
  /// A new version of the program lies in place of this one: main() sees, once this command has
  /// ended, whether it starts, and makes it go on in place of this process if it is to.
  enum class NewVersion { none, isInstalled, goesOn };
  NewVersion newVersion = NewVersion::none;

  const std::string& word(std::size_t place) const { return arguments.words[place]; }
  bool isJson() const { return arguments.has(jsonOption.name); }
  const TerminalStyle& style() const { return console.style(); }
  /// A path that was typed, made absolute.
  std::string absolute(std::string_view path) const;
  /// The project of --project; nullopt without that option.
  std::expected<std::optional<Uuid>, UsageError> givenProject(
      const std::vector<Workspace>& workspaces) const;
  /// The project of --project or of the caller's folder.
  std::expected<Uuid, UsageError> projectHere(const std::vector<Workspace>& workspaces) const;
  /// The task of --task; nullopt without that option.
  std::expected<std::optional<ThreadExecutionKey>, UsageError> givenTask(
      const std::vector<Workspace>& workspaces) const;

  /// Where a task works or a project lies.
  struct Place {
    Uuid project;
    std::string folder;
  };
  /// That of the task, where one is named; else of the project of --project or the caller's folder.
  std::expected<Place, UsageError> placeOf(const std::optional<std::string>& task,
                                           const std::vector<Workspace>& workspaces) const;

  // The answer.

  /// A JSON object as a line of the output.
  void writeJson(const JsonObject& object) { writeJson(json::write(object)); }
  void writeJson(const std::string& object) { console.write(object + "\n"); }
  /// Writes the words; the outcome of a command that has done its work.
  Outcome tell(std::string_view words);
  /// The same with the object for --json, else the words.
  Outcome report(const std::string& object, std::string_view words);
  Outcome report(const JsonObject& object, std::string_view words) {
    return report(json::write(object), words);
  }
  /// A row of a list each: with --json as an object, else as a line of the table.
  template <typename Rows>
  Outcome showList(const Rows& rows, TextTable table, const auto& asJson, const auto& asCells,
                   std::string_view whenEmpty) {
    for (const auto& row : rows) isJson() ? writeJson(asJson(row)) : table.add(asCells(row));
    return showTable(table, std::ranges::empty(rows), whenEmpty);
  }
  /// For lists: the table, or a sentence where it would be empty; with --json nothing, since each
  /// row was written as it came.
  Outcome showTable(const TextTable& table, bool isEmpty, std::string_view whenEmpty);
  /// Whether one of the caller's streams is a terminal.
  bool hasTerminal() const;

  // The end.

  /// Reports how the command ended, once what it opened is closed. The first call counts.
  void finish(Outcome outcome);
  /// Ends it as wrong usage.
  void misused(UsageError error) { finish(std::unexpected(std::move(error))); }
  void misused(std::string what) { misused(UsageError{std::move(what)}); }
  /// Says why, and ends it as failed.
  void fail(std::string_view why);
  /// Says why an operation was refused; the outcome of the command.
  Outcome refused(const Refusal& refusal);
  /// What an operation leads to: the report, or the reason why it was refused.
  Outcome after(const Result<>& done, const std::function<void()>& report);
  /// Ends it as a signal ends a program: without waiting for its work or its reader.
  void abandon(int status);
  bool hasFinished() const { return hasFinished_; }
  /// Kept until the end.
  void keep(std::shared_ptr<void> object) { kept_.push_back(std::move(object)); }
  /// A callback for something that may outlive the command, as the state that others share: it does
  /// nothing once the command ends.
  template <typename Body>
  auto whileAlive(Body body) const {
    return [life = std::weak_ptr(life_),
            body = std::move(body)]<typename... Arguments>(Arguments&&... given) mutable {
      if (!life.expired()) body(std::forward<Arguments>(given)...);
    };
  }

  // The state. Each of these is called once; where the state cannot be opened, the command ends as
  // failed.

  /// What is stored, whichever process works on it. Takes no lock and changes nothing. The error is
  /// a sentence.
  std::expected<WorkspaceStore::Peek, std::string> stored() const;
  /// What the next three calls look at in place of what is stored: another host's conversations.
  void lookAt(std::vector<Workspace> conversations) { elsewhere_ = std::move(conversations); }
  /// Looks at the conversations and ends with what `look` returns.
  void view(const std::function<Outcome(const StateView&)>& look);
  /// The same at the task that the first word names.
  void viewTask(
      const std::function<Outcome(const StateView&, const Workspace&, const ChatThread&)>& look);
  /// The same at the project of --project or of the caller's folder.
  void viewProject(const std::function<Outcome(const ProjectView&)>& look);
  /// Takes the state and begins `work` with it.
  void open(VantrellOptions options, const std::function<void(VantrellApp&)>& work);
  /// Takes the state, changes something and ends with what `change` returns.
  void change(const std::function<Outcome(AppModel&)>& change);
  /// The same with the task that the first word names.
  void openTask(const std::function<void(AppModel&, const ThreadExecutionKey&)>& work);
  void changeTask(const std::function<Outcome(AppModel&, const ThreadExecutionKey&)>& change);
  /// The same with the project of --project or of the caller's folder.
  void changeProject(const std::function<Outcome(AppModel&, const Uuid&)>& change);
  AppModel& model() { return app().model(); }
  VantrellApp& app() { return caller.app ? *caller.app : *app_; }
  /// From now on this process carries out the commands of others as well, until the command has
  /// ended and they have. For commands that own the state for long. The error is a sentence.
  std::expected<void, std::string> acceptCommands();
  /// Ends them as SIGTERM would, at the end of this command.
  void endOthers() { endsOthers_ = true; }
  /// Other commands work on the same state in this process.
  bool sharesState() const;

  // The user.

  /// A message on the error output.
  void complain(std::string_view text) { console.complain(text); }
  /// The lines that the user gives as answers; none where the input was read as a whole.
  AnswerSource& answers();
  /// A person can be asked.
  bool canAsk() const;
  /// Asks on the error output; nullopt at the end of the input.
  void ask(std::string_view question, std::function<void(std::optional<std::string>)> reply);
  /// The same for a secret: nothing of what is typed is shown.
  void askHidden(std::string_view question, std::function<void(std::optional<std::string>)> reply);
  /// Goes on with `then` where `--yes` is given or the user agrees; else the command ends, with
  /// nothing changed.
  void confirm(std::string_view question, std::function<void()> then);
  /// Goes on where Full Access is not asked for, or the user types the words for it.
  void confirmFullAccess(bool isAskedFor, std::function<void()> then);
  /// All of the input, up to its end.
  void readInput(std::function<void(std::string)> then);

  // Waiting.

  /// For what may block. The command ends when nothing of it goes on there.
  BackgroundPool& pool();
  /// Does `work` there, then `then` here.
  void inBackground(std::function<void()> work, std::function<void()> then);
  /// The runtimes' programs, for a command that only looks at them. Lives until its end.
  RuntimeSurvey& survey();
  /// Which provider can take a turn, with the state that was opened.
  ProviderCheck providers();

 private:
  void waitForOthers(int status);
  void closeState(int status, Duration tellsOfGit);
  void finishOutput(int status);

  const std::function<void(int)> ended_;
  std::shared_ptr<char> life_ = std::make_shared<char>();
  std::unique_ptr<BackgroundPool> pool_;
  std::unique_ptr<VantrellApp> app_;
  std::unique_ptr<OtherCommands> others_;
  std::shared_ptr<void> signals_;  // while it waits for them
  std::optional<std::vector<Workspace>> elsewhere_;
  bool isOpen_ = false;
  bool endsOthers_ = false;
  Changes::Observation notices_;
  bool isSaved_ = true;
  bool hasFinished_ = false;
  bool isFinishingOutput_ = false;
  std::unique_ptr<AnswerSource> answers_;
  std::shared_ptr<LineReader> reading_;
  std::unique_ptr<terminal::HiddenTyping> hiding_;
  std::shared_ptr<void> hidingSignals_;
  Timer closesAgain_;
  std::vector<std::shared_ptr<void>> kept_;
};

// For Command::begin, made of the function that does the work.

/// It looks at all conversations, at a task or at a project, as its second parameter says.
template <auto look>
void viewing(CommandContext& context) {
  [[maybe_unused]] const auto work = [&](const auto& seen) { return look(context, seen); };
  if constexpr (std::invocable<decltype(look), CommandContext&, const StateView&>) {
    context.view(work);
  } else if constexpr (std::invocable<decltype(look), CommandContext&, const TaskView&>) {
    context.viewTask(
        [&](const StateView& state, const Workspace& workspace, const ChatThread& thread) {
          return look(context, {workspace, thread, state.now});
        });
  } else {
    context.viewProject(work);
  }
}
/// It changes something, a task or a project, as its third parameter says.
template <auto change>
void changing(CommandContext& context) {
  const auto work = [&](auto&... given) { return change(context, given...); };
  if constexpr (std::invocable<decltype(change), CommandContext&, AppModel&>) {
    context.change(work);
  } else if constexpr (std::invocable<decltype(change), CommandContext&, AppModel&, const Uuid&>) {
    context.changeProject(work);
  } else {
    context.changeTask(work);
  }
}

}  // namespace vantrell::shell
