// Two conversations at work at the same time, on one screen. While they work each tells in single
// lines what it does, with its name in front; what it said comes whole when it has ended. Main
// queue.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "shell/terminal/run_observer.h"
#include "shell/terminal/terminal_style.h"

namespace vantrell::shell {

/// The screen that both write to, line by line. A question that waits for its answer stays last.
class ComparisonSheet {
 public:
  using Write = std::function<void(std::string_view)>;
  ComparisonSheet(Write write, TerminalStyle style) : write_(std::move(write)), style_(style) {}

  const TerminalStyle& style() const { return style_; }
  /// Whole lines.
  void put(std::string_view lines);
  /// What stands before the cursor; empty: nothing any more.
  void prompt(std::string text);
  /// The user ended the line of the prompt.
  void promptWasAnswered() { prompt_.clear(); }
  /// Somebody else writes to the terminal.
  void interrupted();

 private:
  Write write_;
  TerminalStyle style_;
  std::string prompt_;
};

/// One of the two.
class ComparisonPrinter final : public RunObserver {
 public:
  /// `thread` gives the conversation, of which the first `known` entries are not news.
  ComparisonPrinter(ComparisonSheet& sheet, std::string name,
                    std::function<const ChatThread*()> thread, std::size_t known,
                    bool showsAnswerPrompt);

  void introduced(const RunIntroduction& introduction) override;
  void entryAdded(const ChatEntry& entry) override;
  void entryReplaced(const ChatEntry& entry) override { entryAdded(entry); }
  void textAdded(const ChatEntry&, std::string_view) override {}
  void transcriptReplaced(const Transcript&) override {}
  void planReplaced(const std::vector<PlanEntry>&) override {}
  void permissionAsked(const PermissionRequest& request) override;
  void lineTyped() override { sheet_.promptWasAnswered(); }
  void permissionStillOpen(const PermissionRequest& request) override;
  void permissionAnswered(const PermissionOption* option) override;
  void runChanged(const RunRecord& run) override;
  void promptQueued(std::size_t) override {}
  void interrupted() override { sheet_.interrupted(); }
  void ended(const RunRecord* run) override;

 private:
  /// A line with the name in front.
  void tell(std::string_view styled);

  ComparisonSheet& sheet_;
  const std::string name_;
  const std::function<const ChatThread*()> thread_;
  const std::size_t known_;
  const bool showsAnswerPrompt_;
  std::string lastStatus_;
  std::map<std::string, std::string, std::less<>> toldTools_;  // status, by entry
};

}  // namespace vantrell::shell
