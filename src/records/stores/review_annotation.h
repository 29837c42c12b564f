// The user's notes on what a task has changed, and the file that keeps them. Plain values.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/files/files.h"
#include "platform/values/date.h"
#include "platform/values/uuid.h"
#include "records/values/chat_thread.h"
#include "records/values/raw_text.h"

namespace vantrell {

class OrchestrationStore;

enum class ReviewDecision { pending, accepted, rejected };

constexpr auto rawTexts(ReviewDecision) {
  return std::to_array<std::string_view>({"pending", "accepted", "rejected"});
}

struct ReviewAnnotation {
  Uuid id;
  Uuid workspaceID;
  Uuid threadID;
  std::string filePath;
  std::optional<std::int64_t> line;
  std::string body;  // trimmed, never empty
  ReviewDecision decision = ReviewDecision::pending;
  Date createdAt;

  bool operator==(const ReviewAnnotation&) const = default;
};

/// Those of one conversation, in their order.
std::vector<ReviewAnnotation> annotationsOf(const ThreadExecutionKey& key,
                                            const std::vector<ReviewAnnotation>& annotations);

/// All that are stored ("review-annotations.json"), oldest first; none where the file cannot be
/// read.
std::vector<ReviewAnnotation> loadReviewAnnotations(OrchestrationStore& store);
files::Result<> saveReviewAnnotations(OrchestrationStore& store,
                                      const std::vector<ReviewAnnotation>& annotations);
/// The same as OrchestrationStore::save() writes it, for a script.
std::string encodeReviewAnnotation(const ReviewAnnotation& annotation);

}  // namespace vantrell
