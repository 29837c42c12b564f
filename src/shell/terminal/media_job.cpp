#include "shell/terminal/media_job.h"

#include <fmt/format.h>

#include "engine/core/execution_table.h"
#include "engine/imagine/imagine_controller.h"
#include "platform/text/text.h"
#include "records/stores/imagine_store.h"
#include "shell/terminal/json_printer.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

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

MediaJob::MediaJob(CommandContext& context, std::string prompt, ImagineKind kind)
    : context_(context),
      prompt_(std::move(prompt)),
      kind_(kind),
      itemsBefore_(generator().imagineItems().size()),
      itemsTold_(itemsBefore_) {}

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
    tellProgress(isNews);
  }
  const auto& items = generator().imagineItems();
  while (itemsTold_ < items.size()) {
    ++itemsTold_;
    tellItem(items[items.size() - itemsTold_]);
  }
}

/// Where there is no status line, only what the program itself says is shown: an agent's words come
/// in pieces.
void MediaJob::tellProgress(bool isNews) {
  if (context_.isJson()) {
    return context_.writeJson(
        {{"event", "progress"}, {"state", wordFor(state_)}, {"text", progress_}});
  }
  const bool isAtWork =
      state_ == ConnectionState::Kind::connecting || state_ == ConnectionState::Kind::working;
  if (!isAtWork || progress_.empty()) return;
  if (context_.style().isLive()) return context_.console.status(progress_);
  if (isNews) context_.console.write(onOneLine(progress_) + "\n");
}

void MediaJob::tellItem(const ImagineItem& item) {
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

void MediaJob::endWork() {
  if (!isAtRest()) generator().reset();
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
  if (context_.isJson()) {
    return context_.writeJson(
        {{"event", "end"}, {"outcome", outcomeOf(status_)}, {"text", words_}, {"answer", answer_}});
  }
  const auto& style = context_.style();
  std::string text;
  if (status_ == exitStatus::stopped) text = style.yellow("■ " + onOneLine(words_)) + "\n";
  if (status_ == exitStatus::failed) text = style.red("✗ " + onOneLine(words_)) + "\n";
  for (const auto& each : boundedLines(answer_, answerLinesShown)) {
    text += style.dim("  " + each) + "\n";
  }
  context_.console.write(text);
}

}  // namespace vantrell::shell
