// What there is to see while a picture or film is made: for people, or as one JSON object a line
// (docs/terminal.md describes them). Main queue.
#pragma once

#include <functional>
#include <string>

#include "engine/core/connection_state.h"
#include "records/values/imagine_item.h"
#include "shell/terminal/run_observer.h"
#include "shell/terminal/terminal_style.h"

namespace vantrell::shell {

struct ImagineEnd {
  enum class Kind { completed, failed, stopped };
  Kind kind = Kind::completed;
  std::string words;   // for people
  std::string answer;  // what the agent said, where there is nothing else to show
};
constexpr auto rawTexts(ImagineEnd::Kind) {
  return std::to_array<std::string_view>({"completed", "failed", "stopped"});
}

class ImagineObserver : public QuestionObserver {
 public:
  virtual void progressed(ConnectionState::Kind state, std::string_view progress) = 0;
  virtual void itemAdded(const ImagineItem& item) = 0;
  /// Somebody else writes to the terminal: a message, or a key that it shows.
  virtual void interrupted() = 0;
  /// Nothing comes after this.
  virtual void ended(const ImagineEnd& end) = 0;
};

using WriteOut = std::function<void(std::string_view)>;

/// On a live terminal the progress is one line that changes in place. Elsewhere only what the
/// program itself says of it is shown: an agent's words come in pieces.
class ImaginePrinter final : public ImagineObserver {
 public:
  ImaginePrinter(WriteOut write, TerminalStyle style, bool showsAnswerPrompt)
      : write_(std::move(write)), style_(style), showsAnswerPrompt_(showsAnswerPrompt) {}

  void permissionAsked(const PermissionRequest& request) override;
  void lineTyped() override { isLineOpen_ = false; }
  void permissionStillOpen(const PermissionRequest& request) override;
  void permissionAnswered(const PermissionOption* option) override;
  void progressed(ConnectionState::Kind state, std::string_view progress) override;
  void itemAdded(const ImagineItem& item) override;
  void interrupted() override;
  void ended(const ImagineEnd& end) override;

 private:
  void line(std::string_view styled);

  WriteOut write_;
  TerminalStyle style_;
  const bool showsAnswerPrompt_;
  ConnectionState::Kind state_ = ConnectionState::Kind::idle;
  bool isStatusShown_ = false;  // on the line of the cursor; it goes with the next output
  bool isLineOpen_ = false;     // an answer is awaited on this line
};

class ImagineJsonPrinter final : public ImagineObserver {
 public:
  explicit ImagineJsonPrinter(WriteOut write) : write_(std::move(write)) {}

  void permissionAsked(const PermissionRequest& request) override;
  void lineTyped() override {}
  void permissionStillOpen(const PermissionRequest&) override {}
  void permissionAnswered(const PermissionOption*) override {}
  void progressed(ConnectionState::Kind state, std::string_view progress) override;
  void itemAdded(const ImagineItem& item) override;
  void interrupted() override {}
  void ended(const ImagineEnd& end) override;

 private:
  WriteOut write_;
};

}  // namespace vantrell::shell
