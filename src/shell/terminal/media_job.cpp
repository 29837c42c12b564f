#include "shell/terminal/media_job.h"

#include "engine/core/execution_table.h"
#include "engine/imagine/imagine_controller.h"
#include "platform/text/text.h"
#include "records/stores/imagine_store.h"
#include "shell/terminal/json_printer.h"
#include "shell/terminal/task_words.h"

namespace vantrell::shell {

namespace {

constexpr std::size_t answerLinesShown = 12;

std::string_view wordFor(ConnectionState::Kind state) {
  static constexpr std::string_view words[] = {"idle", "connecting", "ready", "working", "failed"};
  return words[static_cast<std::size_t>(state)];
}

std::string_view outcomeOf(int status) {
  return status == exitStatus::completed ? "completed"
         : status == exitStatus::stopped ? "stopped"
                                         : "failed";
}

}  // namespace

class MediaJob::Printer : public LinePrinter<QuestionObserver> {
 public:
  Printer(CommandContext& context, std::unique_ptr<LineScreen> own)
      : LinePrinter(*own, "", context.answers().isTerminal() && !context.arguments.has("--answer")),
        context_(context),
        own_(std::move(own)) {}

  void permissionAsked(const PermissionRequest& request) override {
    if (!context_.isJson()) return LinePrinter::permissionAsked(request);
    context_.console.write(permissionEvent(request));
  }
  void permissionAnswered(const PermissionOption* option) override {
    if (!context_.isJson()) LinePrinter::permissionAnswered(option);
  }
  void permissionStillOpen(const PermissionRequest& request) override {
    if (!context_.isJson()) LinePrinter::permissionStillOpen(request);
  }
  /// Where nothing changes in place, only what the program itself says of it is shown: an agent's
  /// words come in pieces.
  void progressed(ConnectionState::Kind state, const std::string& progress, bool isNews) {
    if (context_.isJson())
      return event("progress", {{"state", wordFor(state)}, {"text", progress}});
    const bool isAtWork =
        state == ConnectionState::Kind::connecting || state == ConnectionState::Kind::working;
    if (!isAtWork || progress.empty()) return;
    if (screen.style().isLive()) return screen.status(progress);
    if (isNews) tell(onOneLine(progress));
  }
  void itemAdded(const ImagineItem& item) {
    const auto& style = screen.style();
    if (context_.isJson()) {
      std::string line = R"({"event":"item","item":)";
      JsonWriter writer(line);
      writeJson(writer, item);
      return context_.console.write(line + "}\n");
    }
    tell(fmt::format(
        "{}  {}  {}",
        style.green(item.kind == ImagineKind::video ? "✓ Video ready" : "✓ Image ready"),
        style.cyan(shortID(item.id)), sanitized(item.localPath)));
  }
  void ended(int status, const std::string& words, const std::string& answer) {
    if (context_.isJson()) {
      return event("end", {{"outcome", outcomeOf(status)}, {"text", words}, {"answer", answer}});
    }
    const auto& style = screen.style();
    screen.interrupted();
    if (status == exitStatus::stopped) tell(style.yellow("■ " + onOneLine(words)));
    if (status == exitStatus::failed) tell(style.red("✗ " + onOneLine(words)));
    for (const auto& each : boundedLines(answer, answerLinesShown)) tell(style.dim("  " + each));
  }
  void interrupted() { screen.interrupted(); }

 private:
  void event(std::string_view name, JsonObject members) {
    JsonObject all{{"event", name}};
    for (const auto& [key, value] : members) all.set(key, value);
    context_.console.write(json::write(all) + "\n");
  }

  CommandContext& context_;
  const std::unique_ptr<LineScreen> own_;
};

MediaJob::MediaJob(CommandContext& context, std::string prompt, ImagineKind kind)
    : MediaJob(context, std::move(prompt), kind,
               std::make_unique<Printer>(context, std::make_unique<LineScreen>(context.console))) {}

MediaJob::MediaJob(CommandContext& context, std::string prompt, ImagineKind kind,
                   std::unique_ptr<Printer> printer)
    : Job(*printer),
      context_(context),
      prompt_(std::move(prompt)),
      kind_(kind),
      printer_(std::move(printer)),
      itemsBefore_(generator().imagineItems().size()),
      itemsTold_(itemsBefore_) {
  context_.beforeComplaint = [this] { printer_->interrupted(); };
}

MediaJob::~MediaJob() {
  context_.beforeComplaint = nullptr;
}

ImagineController& MediaJob::generator() const {
  return context_.model().imagine();
}

void MediaJob::begin() {
  const auto begun = generator().generateImagine(prompt_, kind_);
  if (!begun) refusal_ = begun.error().sentence;
}

void MediaJob::changed(const ChangeBatch&) {
  const auto state = generator().imagineState().kind;
  const auto& progress = generator().imagineProgress();
  if (state != state_ || progress != progress_) {
    const bool isNews = std::exchange(state_, state) != state;
    progress_ = progress;
    printer_->progressed(state_, progress_, isNews);
  }
  const auto& items = generator().imagineItems();
  while (itemsTold_ < items.size()) {
    ++itemsTold_;
    printer_->itemAdded(items[items.size() - itemsTold_]);
  }
}

/// What was found is copied to its end.
bool MediaJob::isAtRest() const {
  return !generator().imagineState().isBusy() && !generator().hasUnfinishedWork();
}

bool MediaJob::isStopping() const {
  return generator().hasUnfinishedWork();
}

void MediaJob::stop() {
  isStopped_ = true;
  generator().cancelImagine();
}

Job::Question MediaJob::question() const {
  return context_.model().executions().imagine().permissionRequest;
}

Result<> MediaJob::answer(const PermissionRequest& request, const PermissionOption* option,
                          Approvals::Answerer answerer) {
  auto& approvals = context_.model().approvals();
  return option ? approvals.respondToImaginePermission(request.id, option->id, answerer)
                : approvals.rejectImaginePermission(request.id);
}

std::string MediaJob::copyFailure() const {
  return fmt::format(
      "A file that Grok made is not in the library: {}. It is where Grok has put it.",
      generator().imagineCopyError());
}

void MediaJob::conclude() {
  const auto& state = generator().imagineState();
  status_ = exitStatus::failed;
  if (isStopped_) {
    status_ = exitStatus::stopped;
    words_ = "Stopped";
  } else if (state.kind != ConnectionState::Kind::ready) {
    words_ = refusal_.empty() ? context_.model().executions().errorMessage().value_or(state.text)
                              : refusal_;
  } else if (itemsTold_ > itemsBefore_) {
    status_ = exitStatus::completed;
    words_ = generator().imagineProgress();
    if (!generator().imagineCopyError().empty()) context_.complain(copyFailure());
  } else if (!generator().imagineCopyError().empty()) {
    words_ = copyFailure();
  } else {
    // Some agents end a turn that failed for them as if it had gone well.
    answer_ = text::trimmed(generator().imagineAnswer());
    words_ = answer_.empty() ? "Grok ended its turn without naming a file that exists, and said "
                               "nothing."
                             : "Grok ended its turn without naming a file that exists. It said:";
  }
}

void MediaJob::tellEnd() {
  printer_->ended(status_, words_, answer_);
}

}  // namespace vantrell::shell
