#include "engine/projects/review_notes.h"

#include "platform/queues/dispatch.h"
#include "platform/text/text.h"

namespace vantrell {

ReviewNotes::ReviewNotes(MainQueue& main, Changes& changes, OrchestrationStore& store)
    : main_(main), changes_(changes), store_(store) {}

void ReviewNotes::load() {
  annotations_ = loadReviewAnnotations(store_);
}

Result<> ReviewNotes::addReviewAnnotation(std::string filePath, std::optional<std::int64_t> line,
                                          std::string_view body, ReviewDecision decision,
                                          const ThreadExecutionKey& key) {
  const std::string_view note = text::trimmed(body);
  if (note.empty()) return refuse("A note needs a text.");
  annotations_.push_back({.id = Uuid::random(),
                          .workspaceID = key.workspaceID,
                          .threadID = key.threadID,
                          .filePath = std::move(filePath),
                          .line = line,
                          .body = std::string(note),
                          .decision = decision,
                          .createdAt = main_.now()});
  const auto saved = saveReviewAnnotations(store_, annotations_);
  saveFailure_ = saved ? "" : saved.error().description;
  changes_.mark(topics::reviews);
  return {};
}

}  // namespace vantrell
