// A terminal that several write to line by line, with a passing status and a question for the user
// that stays last; and printers on it. Main queue.
#pragma once

#include <fmt/format.h>
#include <string>

#include "shell/terminal/console.h"
#include "shell/terminal/permission_prompt.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

class LineScreen {
 public:
  explicit LineScreen(Console& console) : console_(console) {}

  const TerminalStyle& style() const { return console_.style(); }
  /// Whole lines, with their ends.
  void put(std::string_view lines);
  void line(std::string_view styled) { put(fmt::format("{}\n", styled)); }
  /// A line that the next output takes away; on a live terminal only.
  void status(std::string_view text);
  /// What stands before the cursor until the user ends the line.
  void prompt(std::string text);
  void promptWasAnswered() { prompt_.clear(); }
  /// Something else writes to the terminal.
  void interrupted();

 private:
  Console& console_;
  std::string prompt_;
  bool isStatusShown_ = false;
};

/// Shows the questions of one agent, with its name where there are several.
template <typename Observer>
class LinePrinter : public Observer {
 public:
  LinePrinter(LineScreen& shownOn, std::string name, bool showsAnswerPrompt)
      : screen(shownOn), name_(std::move(name)), showsAnswerPrompt_(showsAnswerPrompt) {}

  void permissionAsked(const PermissionRequest& request) override {
    std::string lines = name_.empty() ? "" : fmt::format("\n{}\n", bold(name_ + " asks:"));
    for (const auto& each : permissionLines(request, screen.style())) lines += each + "\n";
    screen.put(lines);
    permissionStillOpen(request);
  }
  void lineTyped() override { screen.promptWasAnswered(); }
  void permissionStillOpen(const PermissionRequest& request) override {
    if (!showsAnswerPrompt_) return;
    screen.prompt(bold((name_.empty() ? "" : name_ + ": ") + answerPrompt(request)));
  }
  void permissionAnswered(const PermissionOption* option) override {
    screen.interrupted();
    tell(screen.style().dim(fmt::format("→ {}", option ? onOneLine(option->name) : "Refused")));
  }

 protected:
  std::string bold(std::string_view text) const { return screen.style().bold(text); }
  void tell(std::string_view styled) {
    screen.line(name_.empty() ? std::string(styled)
                              : fmt::format("{} {}", bold(fmt::format("{:<8}", name_)), styled));
  }
  LineScreen& screen;
  const std::string name_;

 private:
  const bool showsAnswerPrompt_;
};

}  // namespace vantrell::shell
