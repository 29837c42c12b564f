// The user's notes on what tasks have changed. Main queue.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/core/engine_core.h"
#include "records/stores/review_annotation.h"

namespace vantrell {

class MainQueue;
class OrchestrationStore;

class ReviewNotes {
 public:
  /// What is given must outlive it.
  explicit ReviewNotes(EngineCore& core);

  /// For start-up.
  void load();

  /// A note of the selected conversation, or of the one that is given. A blank one is none. It is
  /// announced as Change::Kind::reviewChanged.
  void addReviewAnnotation(std::string filePath, std::optional<std::int64_t> line,
                           std::string_view body, ReviewDecision decision,
                           std::optional<ThreadExecutionKey> key = std::nullopt);
  /// Oldest first, of all conversations.
  const std::vector<ReviewAnnotation>& reviewAnnotations() const { return annotations_; }
  /// Those of the selected conversation; none without one.
  std::vector<ReviewAnnotation> selectedReviewAnnotations() const;

  /// Why the last note could not be stored; it holds in this process all the same, and goes with
  /// the next one. Empty when it was stored.
  const std::string& saveFailure() const { return saveFailure_; }

 private:
  MainQueue& main_;
  Selection& selection_;
  Changes& changes_;
  OrchestrationStore& store_;
  std::vector<ReviewAnnotation> annotations_;
  std::string saveFailure_;
};

}  // namespace vantrell
