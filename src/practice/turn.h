// One prompt and what follows from it: carries the directives out one after the other, and tells
// once how the turn ended. Main queue; the agent drops it after the end.
#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/queues/weakly.h"
#include "platform/values/uuid.h"
#include "practice/directives.h"
#include "practice/tool_step.h"

namespace vantrell::practice {

class Turn : public std::enable_shared_from_this<Turn> {
 public:
  /// The protocol's stop reason ("end_turn", "cancelled", "refusal"), or an error for the prompt.
  using Finish = std::function<void(std::expected<std::string, RpcError>)>;

  Turn(TurnContext context, Finish finish);

  /// Never finishes before it has returned.
  void start(std::string_view prompt);
  /// Ends the turn as cancelled, whatever it waits for.
  void cancel();

 private:
  void beginNext();
  /// The present directive has been carried out.
  void goOn();
  void carryOut(const Directive& directive);
  /// Says why the present directive cannot be carried out, and goes on.
  void complain(std::string_view why);
  void finish(std::expected<std::string, RpcError> result);
  /// For a callback of the present directive: does nothing once that has ended.
  template <typename Body>
  auto whileCurrent(Body body) {
    return weakly(this,
                  [number = next_, body = std::move(body)](Turn& turn, auto... arguments) mutable {
                    if (turn.finish_ && turn.next_ == number) body(arguments...);
                  });
  }

  void showPlan();
  void advancePlan();

  // What the directives do; each ends with goOn() or finish(), now or later.
  void speak(std::string_view kind, std::string text, std::string_view stopReason = {});
  void sendPiece();
  void stream(const std::string& path);
  void makePlan(std::string_view entries);
  void useTool(const Directive& directive);
  void tick(std::string_view seconds);
  void die(std::string_view signal);
  void flood(std::string_view target);
  void sendFlood(bool isError);
  void sendGarbage(std::string_view kind);
  void closeInput(std::string_view name);

  TurnContext context_;
  Finish finish_;
  std::vector<Directive> directives_;
  std::size_t next_ = 0;           // index of the directive that comes next
  std::vector<std::string> plan_;  // its entries
  std::size_t planEntry_ = 0;      // entries that are completed
  bool isPlanBegun_ = false;

  // Of the present directive.
  std::shared_ptr<ToolStep> tool_;
  Timer timer_;
  std::string messageId_ = Uuid::random().text();
  std::string_view messageKind_;
  std::string_view stopReason_;  // after the text; empty: the turn goes on
  std::string text_;
  std::size_t sent_ = 0;       // bytes of the text
  std::size_t pieceSize_ = 0;  // bytes; a piece ends after a word
  std::int64_t left_ = 0;      // bytes of a flood, or ticks
};

}  // namespace vantrell::practice
