// A run as a person wants to read it. Text streams; on a live terminal answers are laid out, line
// by line as they come. A tool call is one line and the plan one list, which change in place while
// they are the last thing on a live terminal, and otherwise come again at their end. Main queue.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "platform/queues/dispatch.h"
#include "shell/terminal/activity_lines.h"
#include "shell/terminal/answer_stream.h"
#include "shell/terminal/run_observer.h"
#include "shell/terminal/terminal_style.h"

namespace vantrell::shell {

class TranscriptPrinter final : public RunObserver {
 public:
  using Write = std::function<void(std::string_view)>;
  /// With a queue, the layout of an answer that comes in many pieces is spread over time.
  TranscriptPrinter(Write write, TerminalStyle style, MainQueue* queue = nullptr)
      : write_(std::move(write)), style_(style), queue_(queue) {}

  /// Where a typed answer is read from a terminal, a question ends with a prompt for it.
  bool showsAnswerPrompt = false;
  /// What is shown has been before: prompts and notes come whole, and a tool call that never ended
  /// as it is.
  bool isReview = false;

  void introduced(const RunIntroduction& introduction) override;
  void entryAdded(const ChatEntry& entry) override;
  void entryReplaced(const ChatEntry& entry) override;
  void textAdded(const ChatEntry& entry, std::string_view text) override;
  void transcriptReplaced(const Transcript& entries) override;
  void planReplaced(const std::vector<PlanEntry>& plan) override;
  void permissionAsked(const PermissionRequest& request) override;
  void lineTyped() override;
  void permissionStillOpen(const PermissionRequest& request) override;
  void permissionAnswered(const PermissionOption* option) override;
  void runChanged(const RunRecord& run) override;
  void livenessChanged(const RunRecord& run) override;
  void promptQueued(std::size_t waiting) override;
  void interrupted() override;
  void ended(const RunRecord* run) override;

  /// A line of the program's own, set apart from the transcript.
  void remark(std::string_view line);

 private:
  enum class Block { none, text, tool, plan, other };
  /// What stands last on a live terminal and may be drawn over.
  struct Drawn {
    std::string entryID;  // empty: the plan
    int rows;
    int columns;  // of the terminal when it was drawn
  };

  /// The one way to the terminal for what is read: makes it safe, and takes the passing status away
  /// first.
  void put(std::string_view text);
  void clearStatus();
  /// A line that the next output takes away; on a live terminal only, and not within a text.
  void showStatus(std::string_view text);
  void beginBlock(Block block);
  void endLine();
  void line(std::string_view styled);
  void stream(const ChatEntry& entry, std::string_view text);
  void streamAnswer(const ChatEntry& entry, std::string_view text);
  void layOutAnswer();
  void putAnswer(std::string_view lines);
  /// Shows what of an answer waits for the end of its line, before something else is shown.
  void endAnswer();
  /// One that is whole, laid out.
  void showAnswer(const ChatEntry& entry);
  void showTool(const ChatEntry& entry);
  void showHook(const ChatEntry& entry);
  void showUser(const ChatEntry& entry);
  void showOutcome(const RunRecord& run);
  /// Draws over what `id` has on the screen if that is the last thing there, else a new block.
  void draw(std::string_view id, Block block, const std::vector<std::string>& lines);
  int usableColumns() const;
  /// Sanitized, at most so many unless this is a review.
  std::vector<std::string> linesOf(std::string_view text, std::size_t most) const;

  Write write_;
  TerminalStyle style_;
  MainQueue* queue_;
  Block block_ = Block::none;
  bool atLineStart_ = true;
  bool statusShown_ = false;
  bool agentWasHeard_ = false;  // anything at all but the prompt has come
  std::string streaming_;       // id of the text entry whose text stands last
  /// Of the last answer that streamed, on a live terminal.
  std::optional<AnswerStream> answer_;
  std::string answerID_;       // of its entry
  std::string answerText_;     // all that it was given
  bool isAnswerOpen_ = false;  // its block stands last
  bool hasNewText_ = false;    // since the last layout
  Timer nextLayout_;           // until then text gathers
  std::optional<Drawn> drawn_;
  /// Tool calls that have not ended, and what their line said last.
  std::map<std::string, std::string, std::less<>> openTools_;
  ToolTitles toolTitles_;
  std::vector<PlanEntry> plan_;
  std::string resumeCommand_;  // the command, up to the prompt
  /// A run that has ended, until that is shown: at the end, or when the queue goes on.
  std::optional<RunRecord> outcome_;
  std::optional<Uuid> toldRun_;  // whose end was shown when the queue went on
  bool stopIsUntold_ = false;
};

}  // namespace vantrell::shell
