#include "engine/projects/review_notes.h"

#include "platform/queues/dispatch.h"
#include "platform/text/text.h"

namespace vantrell {

ReviewNotes::ReviewNotes(EngineCore& core)
    : main_(core.main),
      selection_(core.selection),
      changes_(core.changes),
      store_(*core.orchestration) {}

void ReviewNotes::load() {
  annotations_ = loadReviewAnnotations(store_);
}

void ReviewNotes::addReviewAnnotation(std::string filePath, std::optional<std::int64_t> line,
                                      std::string_view body, ReviewDecision decision,
                                      std::optional<ThreadExecutionKey> key) {
  if (!key) key = selection_.key();
  const std::string_view note = text::trimmed(body);
  if (!key || note.empty()) return;
  annotations_.push_back({.id = Uuid::random(),
                          .workspaceID = key->workspaceID,
                          .threadID = key->threadID,
                          .filePath = std::move(filePath),
                          .line = line,
                          .body = std::string(note),
                          .decision = decision,
                          .createdAt = main_.now()});
  const auto saved = saveReviewAnnotations(store_, annotations_);
  saveFailure_ = saved ? "" : saved.error().description;
  changes_.announce({.kind = Change::Kind::reviewChanged, .conversation = *key});
}

std::vector<ReviewAnnotation> ReviewNotes::selectedReviewAnnotations() const {
  const auto key = selection_.key();
  return key ? annotationsOf(*key, annotations_) : std::vector<ReviewAnnotation>();
}

}  // namespace vantrell
