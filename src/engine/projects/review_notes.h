// The user's notes on what tasks have changed. Main queue.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/core/changes.h"
#include "engine/core/refusal.h"
#include "records/stores/review_annotation.h"

namespace vantrell {

class MainQueue;
class OrchestrationStore;

class ReviewNotes {
 public:
  /// What is given must outlive it.
  ReviewNotes(MainQueue& main, Changes& changes, OrchestrationStore& store);

  /// For start-up.
  void load();

  /// A note about a file that the conversation has changed; a blank one is refused. Announced as
  /// topics::reviews.
  Result<> addReviewAnnotation(std::string filePath, std::optional<std::int64_t> line,
                               std::string_view body, ReviewDecision decision,
                               const ThreadExecutionKey& key);
  /// Oldest first, of all conversations.
  const std::vector<ReviewAnnotation>& reviewAnnotations() const { return annotations_; }
  /// Why the last note could not be stored; it holds in this process all the same, and goes with
  /// the next one. Empty when it was stored.
  const std::string& saveFailure() const { return saveFailure_; }

 private:
  MainQueue& main_;
  Changes& changes_;
  OrchestrationStore& store_;
  std::vector<ReviewAnnotation> annotations_;
  std::string saveFailure_;
};

}  // namespace vantrell
