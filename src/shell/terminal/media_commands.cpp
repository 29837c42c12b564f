// Pictures and films, and the files that a task has made: imagine, artifacts.
#include <fmt/format.h>

#include "app/user_state.h"
#include "engine/core/execution_table.h"
#include "engine/imagine/imagine_controller.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "project/artifact_discovery.h"
#include "records/stores/imagine_store.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/json_printer.h"
#include "shell/terminal/run_plan.h"
#include "shell/terminal/session.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

// ---- imagine ------------------------------------------------------------------------------------

using Items = std::vector<ImagineItem>;

constexpr std::size_t answerLinesShown = 12;
constexpr std::string_view stateWords[] = {"idle", "connecting", "ready", "working", "failed"};

std::string asJson(const ImagineItem& item) {
  std::string line;
  JsonWriter writer(line);
  writeJson(writer, item);
  return line;
}

/// The library as it is stored: no lock is needed to look at it.
Items storedItems() {
  return ImagineStore::peek(UserFolders{}.orOwn().support);
}

/// Those that the words of the command line mean, each once.
std::expected<Items, UsageError> findItems(const Items& items, const CommandContext& context) {
  Items found;
  for (const auto& word : context.arguments.words) {
    const auto item = findByID(items, word, "picture or film", "imagine");
    if (!item) return std::unexpected(item.error());
    if (std::ranges::find(found, **item) == found.end()) found.push_back(**item);
  }
  return found;
}

void listItems(CommandContext& context) {
  if (const auto problem = ImagineStore::problem(UserFolders{}.orOwn().support)) {
    return context.fail(*problem +
                        " Its files are next to it. The next picture that is made begins a new "
                        "list and keeps this one.");
  }
  const auto cells = [&](const ImagineItem& item) -> std::vector<TableCell> {
    return {idCell(item.id),
            {std::string(rawText(item.kind))},
            {item.prompt},
            {withTilde(item.localPath), look::dim},
            {ago(item.createdAt, context.main.now()), look::dim}};
  };
  context.finish(context.showList(
      storedItems(), TextTable({{"ITEM"}, {"KIND"}, {"PROMPT", 16}, {"FILE", 12, true}, {"MADE"}}),
      asJson, cells,
      "No pictures or films yet. To make one: vantrell imagine image \"a red fox\"\n"));
}

void tellPaths(CommandContext& context) {
  const auto found = findItems(storedItems(), context);
  if (!found) return context.misused(found.error());
  for (const auto& item : *found) {
    context.console.write((context.isJson() ? asJson(item) : item.localPath) + "\n");
  }
  context.finish(exitStatus::completed);
}

void removeItems(CommandContext& context) {
  context.change([&](AppModel& model) -> Outcome {
    const auto found = findItems(model.imagine().imagineItems(), context);
    if (!found) return std::unexpected(found.error());
    for (const auto& item : *found) {
      model.imagine().deleteImagineItem(item.id);
      const bool isLeft = files::exists(item.localPath);
      context.console.write(
          context.isJson()
              ? asJson(item) + "\n"
              : fmt::format("{}  {}: {}\n", shortID(item.id),
                            isLeft ? "forgotten; the file could not be moved to the Trash"
                                   : "moved to the Trash",
                            onOneLine(isLeft ? item.localPath : item.prompt)));
    }
    return exitStatus::completed;
  });
}

/// A picture or film being made, as a session follows it.
class MediaJob final : public Job {
 public:
  MediaJob(CommandContext& context, std::string prompt, ImagineKind kind)
      : context_(context),
        prompt_(std::move(prompt)),
        kind_(kind),
        itemsBefore_(generator().imagineItems().size()),
        itemsTold_(itemsBefore_) {}

  void begin() override {
    const auto begun = generator().generateImagine(prompt_, kind_);
    if (!begun) refusal_ = begun.error().sentence;
  }

  void changed(const ChangeBatch&) override {
    const auto state = generator().imagineState().kind;
    const auto& progress = generator().imagineProgress();
    if (state != state_ || progress != progress_) {
      state_ = state;
      progress_ = progress;
      context_.isJson()
          ? context_.writeJson({{"event", "progress"},
                                {"state", stateWords[static_cast<std::size_t>(state)]},
                                {"text", progress}})
          : context_.console.status(progress);
    }
    const auto& items = generator().imagineItems();
    while (itemsTold_ < items.size()) {
      ++itemsTold_;
      tellItem(items[items.size() - itemsTold_]);
    }
  }

  /// What was found is copied to its end.
  bool isAtRest() const override {
    return !generator().imagineState().isBusy() && !generator().hasUnfinishedWork();
  }

  bool isStopping() const override { return generator().hasUnfinishedWork(); }

  void stop() override {
    isStopped_ = true;
    generator().cancelImagine();
  }

  void endWork() override {
    if (!isAtRest()) generator().reset();
  }

  Job::Question question() const override {
    return context_.model().executions().imagine().permissionRequest;
  }

  Result<> answer(const PermissionRequest& request, const PermissionOption* option,
                  Approvals::Answerer answerer) override {
    auto& approvals = context_.model().approvals();
    return option ? approvals.respondToImaginePermission(request.id, option->id, answerer)
                  : approvals.rejectImaginePermission(request.id);
  }

  void conclude() override {
    const auto& state = generator().imagineState();
    std::string copyFailure;
    if (!generator().imagineCopyError().empty()) {
      copyFailure = fmt::format(
          "A file that Grok made is not in the library: {}. It is where Grok has put it.",
          generator().imagineCopyError());
    }
    status_ = exitStatus::failed;
    if (isStopped_) {
      status_ = exitStatus::stopped;
      words_ = "Stopped";
    } else if (!refusal_.empty()) {
      words_ = refusal_;
    } else if (state.kind != ConnectionState::Kind::ready) {
      words_ = context_.model().executions().errorMessage().value_or(state.text);
    } else if (itemsTold_ > itemsBefore_) {
      status_ = exitStatus::completed;
      words_ = generator().imagineProgress();
      if (!copyFailure.empty()) context_.complain(copyFailure);
    } else if (!copyFailure.empty()) {
      words_ = copyFailure;
    } else {
      // Some agents end a turn that failed for them as if it had gone well.
      answer_ = text::trimmed(generator().imagineAnswer());
      words_ = "Grok ended its turn without naming a file that exists";
      words_ += answer_.empty() ? ", and said nothing." : ". It said:";
    }
  }

  void tellEnd() override {
    const bool isDone = status_ == exitStatus::completed;
    const bool isStopped = status_ == exitStatus::stopped;
    if (context_.isJson()) {
      const auto outcome = isDone ? "completed" : isStopped ? "stopped" : "failed";
      return context_.writeJson(
          {{"event", "end"}, {"outcome", outcome}, {"text", words_}, {"answer", answer_}});
    }
    if (isDone) return;
    const auto& style = context_.style();
    std::string text =
        isStopped ? style.yellow("■ " + words_) : style.red("✗ " + onOneLine(words_));
    for (const auto& each : boundedLines(answer_, answerLinesShown)) {
      text += "\n" + style.dim("  " + each);
    }
    context_.console.write(text + "\n");
  }

  int status() const override { return status_; }

 private:
  ImagineController& generator() const { return context_.model().imagine(); }

  void tellItem(const ImagineItem& item) {
    if (context_.isJson()) {
      return context_.console.write(
          eventLine("item", "", {}, [&](JsonWriter& writer) { writeJson(writer, item); }));
    }
    const auto& style = context_.style();
    const bool isVideo = item.kind == ImagineKind::video;
    context_.console.write(fmt::format("{}  {}  {}\n",
                                       style.green(isVideo ? "✓ Video ready" : "✓ Image ready"),
                                       style.cyan(shortID(item.id)), sanitized(item.localPath)));
  }

  CommandContext& context_;
  const std::string prompt_;
  const ImagineKind kind_;
  const std::size_t itemsBefore_;
  std::size_t itemsTold_;
  ConnectionState::Kind state_ = ConnectionState::Kind::idle;
  std::string progress_;
  bool isStopped_ = false;
  int status_ = 0;
  std::string refusal_;         // of the prompt
  std::string words_, answer_;  // how it ended
};

void makeItem(CommandContext& context, ImagineKind kind) {
  std::optional<std::string> executable;
  if (const auto named = context.arguments.value(executableOption.name)) {
    auto found = findProgram(context, *named);
    if (!found) return context.misused(found.error());
    executable = *std::move(found);
  }
  withPrompt(context, context.word(0), [&context, kind, executable](const std::string& given) {
    context.open({}, [&](VantrellApp& app) {
      auto& imagine = app.model().imagine();
      if (imagine.imagineState().isBusy() || imagine.hasUnfinishedWork()) {
        return context.fail(
            "Another command makes something at the moment. Try again when it is done.");
      }
      imagine.chooseExecutable(executable);
      const std::string prompt(text::trimmed(given));
      const RunChoices choices{.provider = AgentProvider::grok, .executable = executable};
      // Grok's program and its interpreter may only be found with the login shell's PATH.
      const auto make = [&context, kind, prompt](bool) {
        std::vector<std::unique_ptr<Job>> jobs;
        jobs.push_back(std::make_unique<MediaJob>(context, prompt, kind));
        Session::begin(context, std::move(jobs),
                       {.answerKind = context.arguments.value(answerOption.name)},
                       [&context](int status) { context.finish(status); });
      };
      context.providers().whetherAvailable(AgentProvider::grok, {}, choices,
                                           context.whileAlive(make));
    });
  });
}

constexpr CommandOption makeOptions[] = {answerOption, executableOption, jsonOption};
constexpr Command imagineCommands[] = {
    {"list", "", "list the library", onlyJson, listItems},
    {"image", "\"PROMPT\"", "make a picture; a prompt of - is read from standard input",
     makeOptions, [](CommandContext& context) { makeItem(context, ImagineKind::image); }},
    {"video", "\"PROMPT\"", "make a film", makeOptions,
     [](CommandContext& context) { makeItem(context, ImagineKind::video); }},
    {"path", "ITEM...", "print where the files are, one a line", onlyJson, tellPaths},
    {"remove", "ITEM...", "move the files to the Trash and forget them", onlyJson, removeItems},
};

// ---- artifacts ----------------------------------------------------------------------------------

std::string_view wordFor(ProjectArtifact::Source source) {
  return source == ProjectArtifact::Source::agent ? "tool call" : rawText(source);
}

void listArtifacts(CommandContext& context) {
  const auto stored = context.stored();
  if (!stored) return context.fail(stored.error());
  const auto key = findTask(stored->workspaces, context.word(0));
  if (!key) return context.misused(key.error());
  const ChatThread& thread = threadOf(stored->workspaces, *key);
  const auto root = executionPath(workspaceOf(stored->workspaces, key->workspaceID), thread);
  const auto found = std::make_shared<std::vector<ProjectArtifact>>();
  const auto lookForThem = [root, entries = thread.entries, found] {
    *found = ArtifactDiscovery::artifactsIn(root, entries, storedItems());
  };
  if (!stored->problems->empty()) context.complain(*stored->problems);
  context.inBackground(lookForThem, [&context, found] {
    const auto json = [](const ProjectArtifact& each) {
      return JsonObject{{"path", each.path},
                        {"displayPath", each.displayPath()},
                        {"source", rawText(each.source)}};
    };
    const auto cells = [](const ProjectArtifact& each) -> std::vector<TableCell> {
      return {{std::string(wordFor(each.source)), look::dim}, {each.displayPath()}};
    };
    context.finish(context.showList(*found, TextTable({{"FROM"}, {"FILE", 20, true}}), json, cells,
                                    "This task has made no files.\n"));
  });
}

constexpr Command commands[] = {
    {"imagine", "", "make pictures and films with Grok; list them", onlyJson, listItems,
     "Lists the library of pictures and films, newest first, or makes one. ITEM is a\n"
     "beginning of the ID of one.",
     "Grok Build makes them, which must be installed and signed in. It may ask before "
     "it acts,\n"
     "as far as the mode says so. Ctrl-C stops it; what was copied stays.",
     imagineCommands},
    {"artifacts", "ID", "list the files that a task has made", onlyJson, listArtifacts,
     "Lists the existing files that the task's tool calls have named, then those that git\n"
     "sees as changed in its folder, then the pictures and films of \"vantrell imagine\"."},
};

}  // namespace

std::span<const Command> mediaCommands() {
  return commands;
}

}  // namespace vantrell::shell
