#include "shell/terminal/run_command.h"

#include <fmt/format.h>
#include <unistd.h>

#include "platform/terminal/terminal.h"
#include "runtimes/catalog/permission_mode_texts.h"
#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/full_access_confirmation.h"
#include "shell/terminal/json_printer.h"
#include "shell/terminal/long_work.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/run_session.h"
#include "shell/terminal/standard_output.h"
#include "shell/terminal/task_choice.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"
#include "shell/terminal/transcript_printer.h"

namespace vantrell::shell {

namespace {

std::unique_ptr<RunObserver> makePrinter(RunLoop& loop, const RunPlan& plan,
                                         const Environment& environment, OutputSink& sink,
                                         bool answersAreTyped) {
  const auto write = [&sink](std::string_view bytes) { sink.write(bytes); };
  if (plan.arguments.json) return std::make_unique<JsonPrinter>(write);
  auto printer = std::make_unique<TranscriptPrinter>(
      write, TerminalStyle::of(STDOUT_FILENO, environment), &loop);
  printer->showsAnswerPrompt = answersAreTyped;
  return printer;
}

/// `executableOwner` is read whenever a program is needed: whose program was named may only be
/// known when the task has been looked up.
VantrellOptions optionsFor(const RunPlan& plan,
                           const std::optional<AgentProvider>& executableOwner) {
  VantrellOptions options;
  options.practiceAgent = plan.practiceAgent;
  if (plan.executable) {
    options.customExecutable = [&executableOwner, path = *plan.executable](
                                   AgentProvider asked) -> std::optional<std::string> {
      return asked == executableOwner ? std::optional(path) : std::nullopt;
    };
  }
  return options;
}

}  // namespace

void chooseModes(Settings& settings, const RunArguments& arguments) {
  auto mode = arguments.mode.value_or(settings.permissionMode());
  const auto workflow = arguments.workflow.value_or(settings.workflowMode());
  if (workflow == TaskWorkflowMode::plan && mode == GrokPermissionMode::fullAccess) {
    mode = GrokPermissionMode::ask;
  }
  settings.chooseForThisProcess(mode, workflow);
}

namespace {

/// Opens the task and runs the turn in it.
class Performance {
 public:
  Performance(RunLoop& loop, VantrellApp& app, const RunPlan& plan, const Environment& environment,
              OutputSink& sink, std::optional<AgentProvider>& executableOwner)
      : loop_(loop),
        app_(app),
        plan_(plan),
        sink_(sink),
        executableOwner_(executableOwner),
        source_(AnswerSource::kindOfInput(plan.promptWasRead)),
        answersAreTyped_(source_ == AnswerSource::Kind::terminal && !plan.arguments.answer),
        printer_(makePrinter(loop, plan, environment, sink, answersAreTyped_)) {}

  std::expected<int, UsageError> run() {
    AppModel& model = app_.model();
    const auto task = taskAtHand(model, plan_);
    if (!task) return std::unexpected(task.error());
    if (plan_.executable && !executableOwner_) {
      const ChatThread* thread = *task ? model.tree.thread(**task) : nullptr;
      if (!thread || !thread->lastProvider) {
        return usageError(
            "Nobody has worked on this task yet. Say whose program --executable names with "
            "--provider, as in --provider kimi.");
      }
      executableOwner_ = thread->lastProvider;
    }
    const auto named = plan_.practiceAgent ? std::optional(AgentProvider::local) : executableOwner_;
    const auto provider = chooseProvider(loop_, app_, named, *task);
    if (!provider) return std::unexpected(provider.error());
    const auto key = openTask(model, plan_, *provider);
    if (!key) return std::unexpected(key.error());
    chooseModes(app_.model().settings, plan_.arguments);
    const auto conversation =
        plan_.beginning.conversation
            ? plan_.beginning.conversation(app_.model(), *key, plan_.arguments.prompt)
            : std::expected<ThreadExecutionKey, UsageError>(*key);
    if (!conversation) return std::unexpected(conversation.error());
    Changes::Observation introduction;
    if (*conversation == *key) {
      introduce(*key, *provider, 0);
    } else {
      introduction = introduceWithFirstEntry(*conversation, *provider);
    }

    AnswerSource answers(loop_, STDIN_FILENO, source_);
    RunSession session({.loop = loop_,
                        .model = app_.model(),
                        .observer = *printer_,
                        .answers = answers,
                        .complain = [this](std::string_view text) { say(text); },
                        .answerKind = plan_.arguments.answer,
                        .hearsPrompts = source_ == AnswerSource::Kind::terminal &&
                                        terminal::isTerminal(STDOUT_FILENO)},
                       *conversation);
    sink_.onBroken = [&session] { session.stop(); };
    // Somebody who reads slowly holds the agent back, and nothing else.
    sink_.onFullChanged = [this](bool isFull) { app_.model().executions.setReceiving(!isFull); };
    const int status = session.run([this] {
      if (plan_.beginning.start) return plan_.beginning.start(app_.model());
      app_.model().driver->send(plan_.arguments.prompt, plan_.attachments);
    });
    sink_.onBroken = nullptr;
    sink_.onFullChanged = nullptr;
    wasAbandoned = session.wasAbandoned();
    const ChatThread* thread = app_.model().tree.thread(*conversation);
    if (*conversation != *key && thread && thread->runs.empty() && thread->draftText) {
      say(fmt::format(
          "The prompt did not go out. It is kept as the draft of the new task: vantrell "
          "show {}",
          shortID(thread->id)));
    }
    return status;
  }

  bool wasAbandoned = false;

 private:
  /// Where a new conversation works is known when its prompt goes out.
  Changes::Observation introduceWithFirstEntry(const ThreadExecutionKey& key,
                                               AgentProvider provider) {
    return app_.model().changes.observe(
        [this, key, provider, isDone = false](const Change& change) mutable {
          const bool isIt = change.kind == Change::Kind::entryAdded && change.conversation == key;
          if (!isIt || std::exchange(isDone, true)) return;
          introduce(key, provider, 1);
          const AppModel& model = app_.model();
          for (const auto& note : model.safety->notes()) say(onOneLine(note));
          if (const auto& why = model.branches->whyShared()) {
            say(fmt::format("It works in the project's own folder, not in a worktree. {}",
                            onOneLine(*why)));
          }
        });
  }

  void introduce(const ThreadExecutionKey& key, AgentProvider provider, std::size_t newEntries) {
    const auto folder = app_.model().tree.executionPath(key).value_or("");
    const auto label = ProviderRegistry::descriptor(provider).label;
    printer_->introduced(
        {.conversation = key,
         .runtime = plan_.practiceAgent ? "The practice agent" : label,
         .folder = folder,
         .earlierEntries = app_.model().tree.thread(key)->entries.size() - newEntries,
         .freedom = freedom(provider),
         .goingOn = optionsToGoOn(provider)});
  }

  /// Nobody should be surprised that no question comes.
  std::string_view freedom(AgentProvider provider) const {
    const auto mode = app_.model().settings.permissionMode();
    return mode == GrokPermissionMode::fullAccess ? detail(mode, provider) : std::string_view();
  }

  /// What the next start cannot find out by itself: the program that was named for this one.
  std::string optionsToGoOn(AgentProvider provider) const {
    std::string options;
    if (plan_.arguments.practice) {
      options = "--practice ";
    } else if (plan_.executable) {
      options =
          fmt::format("--provider {} --executable \"{}\" ", rawText(provider), *plan_.executable);
    }
    return options + "--task";
  }

  void say(std::string_view text) {
    printer_->interrupted();
    sink_.flush(momentToFlush);
    complain(text);
  }

  RunLoop& loop_;
  VantrellApp& app_;
  const RunPlan& plan_;
  OutputSink& sink_;
  std::optional<AgentProvider>& executableOwner_;
  const AnswerSource::Kind source_;
  const bool answersAreTyped_;
  std::unique_ptr<RunObserver> printer_;
};

}  // namespace

int performRun(const RunPlan& plan, const Environment& environment) {
  std::optional<AgentProvider> executableOwner = plan.arguments.provider;
  return performLongWork(optionsFor(plan, executableOwner), [&](LongWork& work) {
    Performance performance(work.loop, work.app, plan, environment, work.output, executableOwner);
    const auto result = performance.run();
    work.wasAbandoned = performance.wasAbandoned;
    return result ? *result : refuse(result.error());
  });
}

int performRun(std::expected<RunArguments, UsageError> arguments, RunBeginning beginning,
               const Environment& environment) {
  if (!arguments) return refuse(arguments.error());
  auto plan = prepareRun(std::move(*arguments), environment);
  if (!plan) return refuse(plan.error());
  plan->beginning = std::move(beginning);
  if (plan->arguments.mode == GrokPermissionMode::fullAccess) {
    if (const auto confirmed = confirmFullAccess(Person::atTheTerminal()); !confirmed) {
      return refuse(confirmed.error());
    }
  }
  return performRun(*plan, environment);
}

namespace {

int run(const CommandArguments& arguments, const Environment& environment) {
  return performRun(readRunArguments(arguments), {}, environment);
}

}  // namespace

const Command runCommand{
    .name = "run",
    .parameters = "\"prompt\"",
    .summary = "do one task here, in the terminal",
    .options = runOptions(),
    .mostWords = std::string_view::npos,
    .introduction =
        "Does one task with a coding agent and shows what it says and does. It asks before the\n"
        "agent acts, as far as the mode says so. A prompt of - is read from standard input.",
    .closing =
        "Behind -- stands the prompt, even if it begins with a dash.\n"
        "Ctrl-C stops the task, a second one leaves at once.\n"
        "\n"
        "Exit status: 0 completed, 1 failed, 2 wrong usage, 130 stopped.\n"
        "\n"
        "Examples:\n"
        "  vantrell run \"find out why the tests fail\"\n"
        "  vantrell run --workflow plan --attach notes.txt \"plan the next release\"\n"
        "  vantrell run --task 3F2A91C0 \"now write the changelog\"\n"
        "  vantrell run --json --answer reject_once - < prompt.txt | jq .",
    .run = run,
};

}  // namespace vantrell::shell
