// What the clients of conversations say, each carried to where it belongs. Main queue.
#pragma once

#include <memory>

#include "engine/core/run_lifecycle.h"
#include "engine/providers/model_catalog.h"
#include "engine/turns/approvals.h"
#include "engine/turns/session_intake.h"

namespace vantrell {

class AgentReports {
 public:
  struct Dependencies {
    ExecutionTable& executions;
    RunLifecycle& runs;
    SessionIntake& intake;
    Approvals& approvals;
    ModelCatalog& catalog;
    UsageTracker& usage;
  };
  explicit AgentReports(Dependencies dependencies) : core_(dependencies) {}

  /// Has the conversation's session heard, once and for all its clients.
  void listenTo(const ThreadExecutionKey& key);

 private:
  class Listener;

  const Dependencies core_;
};

}  // namespace vantrell
