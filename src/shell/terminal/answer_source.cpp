#include "shell/terminal/answer_source.h"

#include "platform/terminal/terminal.h"

namespace vantrell::shell {

AnswerSource::AnswerSource(MainQueue& main, Input input)
    : main_(main),
      input_(std::move(input)),
      isTerminal_(!input_.isUsedUp && terminal::isTerminal(input_.descriptor)),
      hasEnded_(input_.isUsedUp) {}

void AnswerSource::ask(std::function<void(std::optional<std::string>)> reply) {
  reply_ = std::move(reply);
  beginAfresh();
  delivery_ = main_.after(Duration::zero(), [this] { deliver(); });
}

void AnswerSource::listen(std::function<void(std::string)> onUnasked) {
  onUnasked_ = std::move(onUnasked);
  beginAfresh();
}

void AnswerSource::beginAfresh() {
  if (std::exchange(readerHasEnded_, false)) reader_.reset();
  const auto onLine = [this](std::string line) {
    if (isTerminal_ && !reply_) {
      if (onUnasked_) onUnasked_(std::move(line));
      return;
    }
    lines_.push_back(std::move(line));
    deliver();
  };
  const auto onEnd = [this] {
    const bool isUnasked = isTerminal_ && !reply_;
    (isUnasked ? readerHasEnded_ : hasEnded_) = true;
    deliver();
  };
  if (!reader_ && !hasEnded_) {
    reader_ = LineReader::begin(main_, {input_.descriptor, onLine, onEnd, input_.isInForeground});
  }
  if (!isTerminal_) return;
  lines_.clear();
  if (reader_) reader_->discardPending();
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
