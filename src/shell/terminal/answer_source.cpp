#include "shell/terminal/answer_source.h"

#include "platform/terminal.h"

namespace vantrell::shell {

AnswerSource::AnswerSource(RunLoop& loop, int descriptor, Kind kind)
    : loop_(loop), descriptor_(descriptor), kind_(kind), hasEnded_(kind == Kind::none) {}

void AnswerSource::ask(std::function<void(std::optional<std::string>)> reply) {
  reply_ = std::move(reply);
  if (kind_ == Kind::terminal) {
    lines_.clear();
    if (watch_) {
      RunLoop::discardPending(*watch_);
    } else {
      terminal::discardTypedAhead(descriptor_);
    }
  }
  if (!watch_ && !hasEnded_) {
    watch_ = loop_.watchLines(
        descriptor_,
        [this](std::string line) {
          // Typed while nothing was asked.
          if (kind_ == Kind::terminal && !reply_) return;
          lines_.push_back(std::move(line));
          deliver();
        },
        [this] {
          hasEnded_ = true;
          deliver();
        });
  }
  delivery_ = loop_.after(Duration::zero(), [this] { deliver(); });
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
