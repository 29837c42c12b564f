// Steps that misbehave on purpose, so that a host can be shown to bear it. Main queue.
#pragma once

#include <cstdint>

#include "practice/step.h"

namespace vantrell::practice {

/// Sends a lot, a batch at a time: the next one when the system has taken the last.
class FloodStep final : public Step {
 public:
  FloodStep(StepContext context, Finish finish, Directive::Kind kind, std::int64_t bytes);
  void start() override;

 private:
  void sendBatch();
  void sendMessages(Work whenWritten);

  Directive::Kind kind_;  // floodOutput or floodError
  std::int64_t left_;     // bytes
  std::string messageId_;
};

/// Breaks the protocol, closes the input, or ends the process.
class FaultStep final : public Step {
 public:
  FaultStep(StepContext context, Finish finish, const Directive& directive);
  void start() override;

 private:
  void writeAndGoOn(std::string bytes);
  void writeAndDie(std::string bytes, int signal);

  Directive directive_;
};

}  // namespace vantrell::practice
