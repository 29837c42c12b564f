// `vantrell compare`: one prompt to two providers, side by side.
#include <fmt/format.h>
#include <set>
#include <unistd.h>

#include "platform/terminal/terminal.h"
#include "platform/values/json.h"
#include "project/git_workspace_service.h"
#include "runtimes/catalog/permission_mode_texts.h"
#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/awaiting.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/comparison_printer.h"
#include "shell/terminal/comparison_session.h"
#include "shell/terminal/full_access_confirmation.h"
#include "shell/terminal/json_printer.h"
#include "shell/terminal/long_work.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/run_command.h"
#include "shell/terminal/standard_output.h"
#include "shell/terminal/task_choice.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"
#include "shell/terminal/user_path.h"

namespace vantrell::shell {

namespace {

constexpr std::size_t filesShown = 20;  // of each of the two
constexpr std::string_view withOption = "--with";

constexpr CommandOption options[] = {
    {withOption, "ID", "one of the providers, as in codex; given twice"},
    {"--project", "DIR", "in this folder (default: the current one)"},
    {"--task", "ID", "go on with this task; any beginning of its ID that no other has"},
    {"--practice", "", "let the practice agent stand in for local"},
    modeOption,
    workflowOption,
    answerOption,
    {"--json", "", "one JSON object a line, each with the task's ID, for scripts"},
};

std::expected<std::vector<AgentProvider>, UsageError> providersOf(
    const CommandArguments& arguments) {
  std::vector<AgentProvider> providers;
  for (const auto& word : arguments.values(withOption)) {
    const auto provider = fromRawText<AgentProvider>(word);
    if (!provider) {
      constexpr auto known = rawTexts(AgentProvider{});
      return usageError(
          fmt::format("There is no provider \"{}\".{} \"vantrell providers\" lists them.",
                      onOneLine(word), suggestion(word, known)));
    }
    if (std::ranges::find(providers, *provider) == providers.end()) providers.push_back(*provider);
  }
  if (providers.size() == 2) return providers;
  return usageError(
      "A comparison takes two providers: vantrell compare \"prompt\" --with codex --with claude");
}

std::string_view nameOf(AgentProvider provider, const VantrellApp& app) {
  return provider == AgentProvider::local && app.practices() ? "Practice" : shortLabel(provider);
}

/// The comparison from the opened program to what came of it.
class Comparison {
 public:
  Comparison(RunLoop& loop, VantrellApp& app, const RunPlan& plan,
             const std::vector<AgentProvider>& providers, const Environment& environment,
             OutputSink& sink)
      : loop_(loop),
        app_(app),
        model_(app.model()),
        plan_(plan),
        providers_(providers),
        sink_(sink),
        source_(AnswerSource::kindOfInput(plan.promptWasRead)),
        sheet_([&sink](std::string_view bytes) { sink.write(bytes); },
               TerminalStyle::of(STDOUT_FILENO, environment)) {}

  std::expected<int, UsageError> run() {
    if (const auto missing = whoIsMissing()) return usageError(*missing);
    const auto task = openTask(model_, plan_, providers_.front());
    if (!task) return std::unexpected(task.error());
    model_.tree.updateThreadTitleIfNeeded(plan_.arguments.prompt, *task);
    chooseModes(model_.settings, plan_.arguments);
    model_.branches->compareNextPrompt(plan_.arguments.prompt, providers_);
    if (const auto& error = model_.executions.mirror().errorMessage) {
      say(*error);
      return exitStatus::failed;
    }
    const auto sides = makeSides(model_.tree.thread(*task)->entries.size());
    AnswerSource answers(loop_, STDIN_FILENO, source_);
    ComparisonSession session(
        {.loop = loop_,
         .model = model_,
         .answers = answers,
         .complain = [this](std::string_view text) { say(text); },
         .answerKind = plan_.arguments.answer,
         .introduce = [this](const ComparisonSession::Side& side) { introduce(side); }},
        sides);
    sink_.onBroken = [&session] { session.stop(); };
    sink_.onFullChanged = [this](bool isFull) { model_.executions.setReceiving(!isFull); };
    const int status = session.run();
    sink_.onBroken = nullptr;
    sink_.onFullChanged = nullptr;
    wasAbandoned = session.wasAbandoned();
    for (const auto& side : sides) {
      const ChatThread& thread = *model_.tree.thread(side.key);
      if (!thread.draftText) continue;
      say(fmt::format("{}: the prompt did not go out. It is kept as the draft of task {}.",
                      side.name, shortID(thread.id)));
    }
    if (!wasAbandoned) summarize(sides);
    return status;
  }

  bool wasAbandoned = false;

 private:
  std::optional<std::string> whoIsMissing() {
    for (const auto provider : providers_) {
      await(loop_, [&](std::function<void()> done) {
        app_.services().prepare(provider, std::move(done));
      });
      const bool isThere = findWithUserPath(
          loop_, *model_.runtimes, [&] { return model_.router->providerAvailable(provider); });
      if (!isThere) return whatToDoFor(app_, provider) + " Nothing was changed.";
    }
    return std::nullopt;
  }

  /// The two forks: those of one group, the first one selected.
  std::vector<ComparisonSession::Side> makeSides(std::size_t known) {
    const auto first = *model_.selection.key();
    const auto group = model_.tree.thread(first)->comparisonGroupID;
    std::vector<ComparisonSession::Side> sides;
    for (const auto provider : providers_) {
      for (const auto& thread : model_.tree.workspace(first.workspaceID)->threads) {
        if (thread.comparisonGroupID != group || thread.preferredProvider != provider) continue;
        const ThreadExecutionKey key{first.workspaceID, thread.id};
        sides.push_back(
            {key, std::string(nameOf(provider, app_)), makePrinter(key, provider, known)});
      }
    }
    return sides;
  }

  RunObserver& makePrinter(const ThreadExecutionKey& key, AgentProvider provider,
                           std::size_t known) {
    if (plan_.arguments.json) {
      printers_.push_back(std::make_unique<JsonPrinter>(
          [this](std::string_view bytes) { sink_.write(bytes); }, key.threadID));
    } else {
      printers_.push_back(std::make_unique<ComparisonPrinter>(
          sheet_, std::string(nameOf(provider, app_)),
          [this, key] { return model_.tree.thread(key); }, known,
          source_ == AnswerSource::Kind::terminal && !plan_.arguments.answer));
    }
    return *printers_.back();
  }

  void introduce(const ComparisonSession::Side& side) {
    const ChatThread& thread = *model_.tree.thread(side.key);
    const auto mode = model_.settings.permissionMode();
    const bool isFree = mode == GrokPermissionMode::fullAccess;
    const std::string folder = thread.isolatedWorkspacePath.value_or("");
    side.observer.introduced(
        {.conversation = side.key,
         .runtime = side.name,
         .folder = folder,
         .freedom = isFree ? detail(mode, *thread.preferredProvider) : std::string_view()});
    for (const auto& note : model_.safety->notes()) {
      if (notesTold_.insert(note).second) say(onOneLine(note));
    }
  }

  void summarize(const std::vector<ComparisonSession::Side>& sides) {
    for (const auto& side : sides) {
      const ChatThread& thread = *model_.tree.thread(side.key);
      if (!thread.isolatedWorkspacePath) continue;
      const auto picture = GitWorkspaceService::read(*thread.isolatedWorkspacePath);
      sink_.write(plan_.arguments.json ? asJson(side, thread, picture)
                                       : asText(side, thread, picture));
    }
  }

  std::string asText(const ComparisonSession::Side& side, const ChatThread& thread,
                     const GitWorkspaceSnapshot& picture) const {
    const auto& style = sheet_.style();
    const auto state = stateCell(views::taskState(thread));
    std::string text = fmt::format("{} {}  {}\n", style.bold(fmt::format("{:<8}", side.name)),
                                   style.cyan(shortID(thread.id)),
                                   state.look ? (style.*state.look)(state.text) : state.text);
    text += fmt::format("  {}\n", style.dim(onOneLine(withTilde(*thread.isolatedWorkspacePath))));
    if (picture.files.empty()) text += style.dim("  nothing changed") + "\n";
    for (std::size_t i = 0; i < std::min(picture.files.size(), filesShown); ++i) {
      const auto& file = picture.files[i];
      text += fmt::format("  {} {}", file.status, onOneLine(file.path));
      if (file.additions) text += " " + style.green(fmt::format("+{}", *file.additions));
      if (file.deletions) text += " " + style.red(fmt::format("-{}", *file.deletions));
      text += "\n";
    }
    if (picture.files.size() > filesShown) {
      text += style.dim(fmt::format("  … {} more files\n", picture.files.size() - filesShown));
    }
    return text +
           style.dim(asTyped(fmt::format("  All of it: vantrell diff {}   To go on: vantrell "
                                         "run --task {} \"...\"",
                                         shortID(thread.id), shortID(thread.id)))) +
           "\n";
  }

  static std::string asJson(const ComparisonSession::Side& side, const ChatThread& thread,
                            const GitWorkspaceSnapshot& picture) {
    Json::Array files;
    for (const auto& file : picture.files) {
      JsonObject object{{"path", file.path}, {"status", file.status}};
      if (file.additions) object.set("additions", *file.additions);
      if (file.deletions) object.set("deletions", *file.deletions);
      files.push_back(std::move(object));
    }
    const RunRecord* run = thread.latestRun();
    JsonObject result{{"event", "result"},
                      {"workspaceID", side.key.workspaceID.text()},
                      {"threadID", thread.id.text()},
                      {"comparisonGroupID", thread.comparisonGroupID->text()},
                      {"provider", rawText(*thread.preferredProvider)},
                      {"path", *thread.isolatedWorkspacePath}};
    if (run) result.set("status", rawText(run->status));
    result.set("files", std::move(files));
    result.set("additions", picture.additions());
    result.set("deletions", picture.deletions());
    return json::write(result) + "\n";
  }

  void say(std::string_view text) {
    sheet_.interrupted();
    sink_.flush(momentToFlush);
    complain(text);
  }

  RunLoop& loop_;
  VantrellApp& app_;
  AppModel& model_;
  const RunPlan& plan_;
  const std::vector<AgentProvider>& providers_;
  OutputSink& sink_;
  const AnswerSource::Kind source_;
  ComparisonSheet sheet_;
  std::vector<std::unique_ptr<RunObserver>> printers_;
  std::set<std::string> notesTold_;
};

int perform(const RunPlan& plan, const std::vector<AgentProvider>& providers,
            const Environment& environment) {
  VantrellOptions vantrell;
  vantrell.practiceAgent = plan.practiceAgent;
  return performLongWork(std::move(vantrell), [&](LongWork& work) {
    Comparison comparison(work.loop, work.app, plan, providers, environment, work.output);
    const auto result = comparison.run();
    work.wasAbandoned = comparison.wasAbandoned;
    return result ? *result : refuse(result.error());
  });
}

int compare(const CommandArguments& arguments, const Environment& environment) {
  const auto providers = providersOf(arguments);
  if (!providers) return refuse(providers.error());
  auto read = readTurnOptions(arguments, arguments.value("--task"));
  if (!read) return refuse(read.error());
  read->prompt = arguments.words.front();
  read->takesPrompt = true;
  const auto plan = prepareRun(std::move(*read), environment);
  if (!plan) return refuse(plan.error());
  if (plan->arguments.mode == GrokPermissionMode::fullAccess) {
    if (const auto agreed = confirmFullAccess(Person::atTheTerminal()); !agreed) {
      return refuse(agreed.error());
    }
  }
  return perform(*plan, *providers, environment);
}

}  // namespace

const Command compareCommand{
    .name = "compare",
    .parameters = "\"prompt\"",
    .summary = "give one prompt to two providers, each in a worktree of its own",
    .options = options,
    .fewestWords = 1,
    .mostWords = 1,
    .introduction =
        "Makes two tasks out of one, a new one in the project or that of --task, and sends the\n"
        "prompt to a provider in each, at the same time. Each works in a Git worktree with a\n"
        "copy of all that is not committed; without Git there is no comparison. While they\n"
        "work, each tells what it does in single lines; what it said comes when it has ended,\n"
        "and at last where its work lies and which files differ there from the last commit.",
    .closing =
        "Ctrl-C stops both, a second one leaves at once. A prompt of - is read from standard\n"
        "input.\n"
        "\n"
        "Exit status: 0 both completed, 1 one failed, 2 wrong usage, 130 stopped.\n"
        "\n"
        "Examples:\n"
        "  vantrell compare \"find out why the tests fail\" --with codex --with claude\n"
        "  vantrell compare --task 3F2A \"now fix it\" --with kimi --with codex",
    .run = compare,
};

}  // namespace vantrell::shell
