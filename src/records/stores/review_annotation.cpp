#include "records/stores/review_annotation.h"

#include "records/stores/orchestration_store.h"

namespace vantrell {

static constexpr auto fieldsOf(const ReviewAnnotation*) {
  using R = ReviewAnnotation;
  return fields(field("id", &R::id), field("workspaceID", &R::workspaceID),
                field("threadID", &R::threadID), field("filePath", &R::filePath),
                field("line", &R::line), field("body", &R::body), field("decision", &R::decision),
                field("createdAt", &R::createdAt));
}

namespace {
constexpr std::string_view fileName = "review-annotations.json";
}

std::vector<ReviewAnnotation> annotationsOf(const ThreadExecutionKey& key,
                                            const std::vector<ReviewAnnotation>& annotations) {
  std::vector<ReviewAnnotation> all;
  for (const auto& each : annotations) {
    if (ThreadExecutionKey{each.workspaceID, each.threadID} == key) all.push_back(each);
  }
  return all;
}

std::vector<ReviewAnnotation> loadReviewAnnotations(OrchestrationStore& store) {
  return store.load(fileName, std::vector<ReviewAnnotation>());
}

files::Result<> saveReviewAnnotations(OrchestrationStore& store,
                                      const std::vector<ReviewAnnotation>& annotations) {
  return store.save(annotations, fileName);
}

std::string encodeReviewAnnotation(const ReviewAnnotation& annotation) {
  std::string text;
  JsonWriter writer(text);
  writeJson(writer, annotation, orchestrationJson);
  return text;
}

}  // namespace vantrell
