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
constexpr std::string_view stateWords[] = {"idle", "connecting", "ready", "working", "failed"};

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
    state_ = state;
    progress_ = progress;
    context_.isJson() ? context_.writeJson({{"event", "progress"},
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

void MediaJob::conclude() {
  const auto& state = generator().imagineState();
  std::string copyFailure;
  if (!generator().imagineCopyError().empty()) {
    copyFailure =
        fmt::format("A file that Grok made is not in the library: {}. It is where Grok has put it.",
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

void MediaJob::tellEnd() {
  const bool isDone = status_ == exitStatus::completed;
  const bool isStopped = status_ == exitStatus::stopped;
  if (context_.isJson()) {
    const auto outcome = isDone ? "completed" : isStopped ? "stopped" : "failed";
    return context_.writeJson(
        {{"event", "end"}, {"outcome", outcome}, {"text", words_}, {"answer", answer_}});
  }
  if (isDone) return;
  const auto& style = context_.style();
  std::string text = isStopped ? style.yellow("■ " + words_) : style.red("✗ " + onOneLine(words_));
  for (const auto& each : boundedLines(answer_, answerLinesShown)) {
    text += "\n" + style.dim("  " + each);
  }
  context_.console.write(text + "\n");
}

}  // namespace vantrell::shell
