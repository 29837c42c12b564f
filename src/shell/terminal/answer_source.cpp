#include "shell/terminal/answer_source.h"

#include "platform/terminal/terminal.h"

namespace vantrell::shell {

AnswerSource::Kind AnswerSource::kindOf(int descriptor, bool isUsedUp) {
  if (isUsedUp) return Kind::none;
  return terminal::isTerminal(descriptor) ? Kind::terminal : Kind::stream;
}

AnswerSource::AnswerSource(RunLoop& loop, int descriptor, Kind kind)
    : loop_(loop), descriptor_(descriptor), kind_(kind), hasEnded_(kind == Kind::none) {}

void AnswerSource::ask(std::function<void(std::optional<std::string>)> reply) {
  reply_ = std::move(reply);
  if (std::exchange(watchHasEnded_, false)) watch_.reset();
  if (kind_ == Kind::terminal) {
    lines_.clear();
    if (watch_) {
      RunLoop::discardPending(*watch_);
    } else {
      terminal::discardTypedAhead(descriptor_);
    }
  }
  if (!watch_ && !hasEnded_) watch();
  delivery_ = loop_.after(Duration::zero(), [this] { deliver(); });
}

void AnswerSource::listen(std::function<void(std::string)> onUnasked) {
  onUnasked_ = std::move(onUnasked);
  terminal::discardTypedAhead(descriptor_);
  watch();
}

void AnswerSource::watch() {
  watch_ = loop_.watchLines(
      descriptor_,
      [this](std::string line) {
        if (kind_ == Kind::terminal && !reply_) {
          if (onUnasked_) onUnasked_(std::move(line));
          return;
        }
        lines_.push_back(std::move(line));
        deliver();
      },
      [this] {
        if (kind_ == Kind::terminal && !reply_) {
          watchHasEnded_ = true;
          return;
        }
        hasEnded_ = true;
        deliver();
      });
}

void AnswerSource::deliver() {
  if (!reply_ || (lines_.empty() && !hasEnded_)) return;
  const auto reply = std::exchange(reply_, nullptr);
  if (lines_.empty()) return reply(std::nullopt);
  std::string line = std::move(lines_.front());
  lines_.pop_front();
  reply(std::move(line));
}

}  // namespace vantrell::shell
