// A run as a person wants to read it: answers line by line as they come, a tool call as one line at
// its end, the plan as a list. What was shown is never drawn over; what goes on is told as a
// passing status. Main queue.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "shell/terminal/answer_stream.h"
#include "shell/terminal/run_observer.h"
#include "shell/terminal/terminal_style.h"

namespace vantrell::shell {

class TranscriptPrinter final : public RunObserver {
 public:
  using Write = std::function<void(std::string_view)>;
  TranscriptPrinter(Write write, TerminalStyle style) : write_(std::move(write)), style_(style) {}

  /// Takes what the agent does now, if somebody wants to know.
  Write status = [](std::string_view) {};
  /// What is shown has been before: prompts and notes come whole, and a tool call that never ended
  /// as it is.
  bool isReview = false;

  void introduced(const RunIntroduction& introduction) override;
  void entryAdded(const ChatEntry& entry) override;
  void entryReplaced(const ChatEntry& entry) override;
  void textAdded(const ChatEntry& entry, std::string_view text) override;
  void planReplaced(const std::vector<PlanEntry>& plan) override;
  void runChanged(const RunRecord& run) override;
  void livenessChanged(const RunRecord& run) override;
  void promptQueued(std::size_t waiting) override;
  void makeRoom() override { beginBlock(Block::other); }
  void ended(const RunRecord* run) override;

 private:
  enum class Block { none, text, tool, other };
  struct Answer {
    AnswerStream stream;
    std::size_t taken = 0;  // bytes of the entry's text
  };
  struct Tool {
    std::string title;
    std::string openLine;  // empty once it has ended
  };
  void line(std::string_view styled);
  void beginBlock(Block block);
  void showText(std::string_view text);
  /// Shows what of a text waits for the end of its line, before something else is shown.
  void endText();
  void showUser(const ChatEntry& entry);
  void showTool(const ChatEntry& entry);
  void showOutcome(const RunRecord& run);
  /// Sanitized, at most so many unless this is a review.
  std::vector<std::string> linesOf(std::string_view text, std::size_t most) const;

  const Write write_;
  const TerminalStyle style_;
  Block block_ = Block::none;
  bool agentWasHeard_ = false;  // anything at all but the prompt has come
  // By entry:
  std::map<std::string, Answer, std::less<>> answers_;
  std::map<std::string, Tool, std::less<>> tools_;
  std::string answerID_;     // of the last text
  bool isTextLast_ = false;  // something of it was shown, and nothing since
  std::vector<PlanEntry> plan_;
  std::string resumeCommand_;  // the command, up to the prompt
  /// A run that has ended, until that is shown: at the end, or when the queue goes on.
  std::optional<RunRecord> outcome_;
  bool stopIsUntold_ = false;
};

}  // namespace vantrell::shell
