#include "practice/speech_steps.h"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <utility>

#include "platform/files/files.h"
#include "platform/queues/weakly.h"
#include "platform/text/text.h"
#include "platform/text/utf8.h"
#include "platform/values/uuid.h"

namespace vantrell::practice {
namespace {

/// Between two pieces: short enough for tests, long enough to be seen.
constexpr std::chrono::milliseconds pauseBetweenPieces{15};
/// A text is sent in about so many pieces.
constexpr std::size_t piecesOfText = 8;
constexpr std::size_t smallestPiece = 4;  // bytes
constexpr int mostTicks = 60;

/// Where the piece that begins at `start` ends: behind a space where one is near, and never inside
/// a character.
std::size_t endOfPiece(std::string_view text, std::size_t start, std::size_t size) {
  auto hardEnd = start + 3 * size;
  for (auto end = start + size; end < text.size(); ++end) {
    if (text[end - 1] == ' ' || text[end - 1] == '\n') return end;
    if (end >= hardEnd && !utf8::isContinuation(text[end])) return end;
  }
  return text.size();
}

}  // namespace

SpeechStep::SpeechStep(StepContext context, Finish finish, HistoryItem::Kind kind, std::string text,
                       StepEnd end)
    : Step(std::move(context), std::move(finish)),
      kind_(kind),
      messageId_(Uuid::random().text()),
      text_(std::move(text)),
      pieceSize_(std::max(smallestPiece, text_.size() / piecesOfText)),
      end_(std::move(end)) {}

std::shared_ptr<SpeechStep> SpeechStep::ofFile(StepContext context, Finish finish,
                                               const std::string& path) {
  const auto whole = files::standardized(path, context.transcript.session().folder);
  auto text = files::read(whole);
  if (!text) {
    return std::make_shared<SpeechStep>(std::move(context), std::move(finish),
                                        HistoryItem::Kind::agent,
                                        fmt::format("STREAM: {}.", text.error().description));
  }
  auto step = std::make_shared<SpeechStep>(std::move(context), std::move(finish),
                                           HistoryItem::Kind::agent, text::repaired(*text));
  step->pieceSize_ = smallestPiece;
  return step;
}

void SpeechStep::start() {
  sendPiece();
}

void SpeechStep::sendPiece() {
  auto end = endOfPiece(text_, sent_, pieceSize_);
  transcript().speak(kind_, messageId_, std::string_view(text_).substr(sent_, end - sent_));
  sent_ = end;
  if (sent_ == text_.size()) return finish(end_);
  auto next = weakly(this, [](SpeechStep& step) { step.sendPiece(); });
  if (transcript().session().model == "practice-instant") {
    context().queue.post(std::move(next));
  } else {
    timer_ = context().queue.after(pauseBetweenPieces, std::move(next));
  }
}

TickStep::TickStep(StepContext context, Finish finish, double seconds)
    : Step(std::move(context), std::move(finish)),
      seconds_(seconds),
      messageId_(Uuid::random().text()) {}

void TickStep::start() {
  auto period = std::chrono::duration_cast<Duration>(Seconds(seconds_));
  timer_ = context().queue.every(period, weakly(this, [](TickStep& step) { step.tick(); }));
}

void TickStep::tick() {
  transcript().speak(HistoryItem::Kind::agent, messageId_, fmt::format("tick {}\n", ++ticks_));
  if (ticks_ < mostTicks) return;
  timer_.cancel();
  finish();
}

}  // namespace vantrell::practice
