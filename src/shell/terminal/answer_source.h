// The lines that a person or a script gives as answers. Standard input is not touched before the
// first question, unless listen() says so. At a terminal only what is typed after a question counts
// as its answer; of a pipe every line is kept for the question that it answers. Main queue.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/queues/run_loop.h"

namespace vantrell::shell {

class AnswerSource {
 public:
  enum class Kind { terminal, stream, none };
  /// What an input is good for; nothing, where all of it has been read as a prompt.
  static Kind kindOf(int descriptor, bool isUsedUp);
  AnswerSource(RunLoop& loop, int descriptor, Kind kind);

  /// A person types the answers.
  bool isTerminal() const { return kind_ == Kind::terminal; }
  /// Replies with the next line, or with nothing at the end of the input, never within the call.
  /// Replaces an earlier request.
  void ask(std::function<void(std::optional<std::string>)> reply);
  /// From now on a person's lines that answer nothing go there; what was typed before is forgotten.
  /// Not for use without a terminal.
  void listen(std::function<void(std::string line)> onUnasked);
  /// The question was withdrawn.
  void withdraw() { reply_ = nullptr; }

 private:
  void watch();
  void deliver();

  RunLoop& loop_;
  const int descriptor_;
  const Kind kind_;
  bool hasEnded_;
  std::deque<std::string> lines_;
  std::function<void(std::optional<std::string>)> reply_;
  std::function<void(std::string)> onUnasked_;
  bool watchHasEnded_ = false;  // by a Ctrl-D that answered nothing
  Timer delivery_;
  std::shared_ptr<RunLoop::LineWatch> watch_;
};

}  // namespace vantrell::shell
