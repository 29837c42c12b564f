// The lines that a person or a script gives as answers. The input is not touched before the first
// question, unless listen() says so. At a terminal only what is typed after a question counts as
// its answer; of a pipe every line is kept for the question that it answers. Main queue.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/queues/line_reader.h"

namespace vantrell::shell {

class AnswerSource {
 public:
  struct Input {
    int descriptor = 0;
    /// Whether what is typed is for this program. Any thread. Unset: LineReader finds out.
    std::function<bool()> isInForeground;
    bool isUsedUp = false;  // all of it has been read as a prompt
  };
  AnswerSource(MainQueue& main, Input input);

  /// A person types the answers.
  bool isTerminal() const { return isTerminal_; }
  /// Replies with the next line, or with nothing at the end of the input, never within the call.
  /// Replaces an earlier request.
  void ask(std::function<void(std::optional<std::string>)> reply);
  /// From now on a person's lines that answer nothing go there; what was typed before is forgotten.
  /// Not for use without a terminal.
  void listen(std::function<void(std::string line)> onUnasked);
  /// The question was withdrawn.
  void withdraw() { reply_ = nullptr; }

 private:
  /// Begins to read, and forgets what a person has typed so far.
  void beginAfresh();
  void deliver();

  MainQueue& main_;
  const Input input_;
  const bool isTerminal_;
  bool hasEnded_;
  std::deque<std::string> lines_;
  std::function<void(std::optional<std::string>)> reply_;
  std::function<void(std::string)> onUnasked_;
  bool readerHasEnded_ = false;  // by a Ctrl-D that answered nothing
  Timer delivery_;
  std::shared_ptr<LineReader> reader_;
};

}  // namespace vantrell::shell
