#include "engine/review_desk.h"

#include "platform/dispatch.h"
#include "platform/text.h"

namespace vantrell {

ReviewDesk::ReviewDesk(EngineCore& core)
    : main_(core.main),
      selection_(core.selection),
      changes_(core.changes),
      store_(*core.orchestration) {}

void ReviewDesk::load() {
  annotations_ = loadReviewAnnotations(store_);
}

void ReviewDesk::addReviewAnnotation(std::string filePath, std::optional<std::int64_t> line,
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

std::vector<ReviewAnnotation> ReviewDesk::selectedReviewAnnotations() const {
  const auto key = selection_.key();
  return key ? annotationsOf(*key, annotations_) : std::vector<ReviewAnnotation>();
}

}  // namespace vantrell
