// Steps that only talk: streamed text, ticks, silence. Main queue.
#pragma once

#include <string>
#include <utility>

#include "practice/step.h"

namespace vantrell::practice {

/// Streams a text in pieces, as a message or a thought.
class SpeechStep final : public Step {
 public:
  SpeechStep(StepContext context, Finish finish, HistoryItem::Kind kind, std::string text,
             StepEnd end = {});
  /// Streams a file of the project as a message, piece by piece as models do. The agent reads it
  /// itself: the host sees nothing but the text.
  static std::shared_ptr<SpeechStep> ofFile(StepContext context, Finish finish,
                                            const std::string& path);
  void start() override;

 private:
  void sendPiece();

  HistoryItem::Kind kind_;
  std::string messageId_;
  std::string text_;
  std::size_t sent_ = 0;   // bytes
  std::size_t pieceSize_;  // bytes; a piece ends behind a word
  StepEnd end_;
  Timer timer_;
};

/// Sends a tick every so many seconds until it is cancelled or has sent enough.
class TickStep final : public Step {
 public:
  TickStep(StepContext context, Finish finish, double seconds);
  void start() override;

 private:
  void tick();

  double seconds_;
  int ticks_ = 0;
  std::string messageId_;
  Timer timer_;
};

/// Ends at once, in the given way.
class EndStep final : public Step {
 public:
  EndStep(StepContext context, Finish finish, StepEnd end)
      : Step(std::move(context), std::move(finish)), end_(std::move(end)) {}
  void start() override { finish(end_); }

 private:
  StepEnd end_;
};

/// Waits for its cancellation.
class HangStep final : public Step {
 public:
  using Step::Step;
  void start() override {}
};

}  // namespace vantrell::practice
