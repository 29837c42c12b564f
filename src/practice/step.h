// One directive being carried out. A turn runs its steps one after the other and drops the present
// one when it is cancelled: whatever a step waits for holds it weakly. Main queue.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/queues/dispatch.h"
#include "practice/directives.h"
#include "practice/transcript.h"

namespace vantrell::practice {

/// What the host said that it can do for an agent.
struct HostAbilities {
  bool readsFiles = false;
  bool writesFiles = false;
  bool hasTerminals = false;
};

/// How a step ended, and so how the turn goes on.
struct StepEnd {
  enum class Kind { goOn, cancelled, refused, failed };
  Kind kind = Kind::goOn;
  std::string error;  // failed: for the host
};

/// What steps work with.
struct StepContext {
  MainQueue& queue;
  Transcript& transcript;
  OutputWriter& output;
  HostAbilities abilities;
  std::function<void()> closeInput;
};

class Step : public std::enable_shared_from_this<Step> {
 public:
  using Finish = std::function<void(StepEnd)>;

  Step(StepContext context, Finish finish)
      : context_(std::move(context)), finish_(std::move(finish)) {}
  virtual ~Step() = default;
  Step(const Step&) = delete;
  Step& operator=(const Step&) = delete;

  /// Begins; the end comes through `finish`, once, now or later.
  virtual void start() = 0;
  /// The turn is over: leaves nothing half done at the host. The step is destroyed next.
  virtual void abandon() {}

 protected:
  Transcript& transcript() { return context_.transcript; }
  const StepContext& context() const { return context_; }
  void finish(StepEnd end = {}) { finish_(std::move(end)); }

 private:
  StepContext context_;
  Finish finish_;
};

}  // namespace vantrell::practice
