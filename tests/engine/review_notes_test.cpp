#include <gmock/gmock.h>

#include "support/engine_fixture.h"

namespace vantrell::tests {
namespace {

using ::testing::ElementsAre;

class ReviewNotes : public EngineFixture {
 public:
  std::vector<std::string> selectedBodies() {
    std::vector<std::string> bodies;
    for (const auto& note : app->selected().selectedReviewAnnotations())
      bodies.push_back(note.body);
    return bodies;
  }
};

TEST_F(ReviewNotes, NotesBelongToTheirTaskAndOutliveTheProcess) {
  start();
  app->selected().addReviewAnnotation("a.cpp", 12, "  leaks\n", ReviewDecision::rejected);
  app->selected().addReviewAnnotation("b.cpp", std::nullopt, "fine", ReviewDecision::accepted);
  app->selected().addReviewAnnotation("c.cpp", 1, " \n\t", ReviewDecision::pending);
  const auto first = model->reviews.reviewAnnotations().at(0);
  EXPECT_EQ(first.line, 12);
  EXPECT_EQ(first.decision, ReviewDecision::rejected);
  EXPECT_EQ(first.createdAt, main.now());
  EXPECT_THAT(selectedBodies(), ElementsAre("leaks", "fine"));

  model->operations->newThread(key.workspaceID);
  EXPECT_THAT(selectedBodies(), ElementsAre());
  model->reviews.addReviewAnnotation("a.cpp", 12, "of the first", ReviewDecision::pending, key);
  EXPECT_THAT(selectedBodies(), ElementsAre());
  model->selection.select(std::nullopt, std::nullopt);
  app->selected().addReviewAnnotation("a.cpp", 12, "of nobody", ReviewDecision::pending);
  EXPECT_THAT(selectedBodies(), ElementsAre());

  stop();
  start();
  model->selection.select(key.workspaceID,
                          model->tree.workspace(key.workspaceID)->threads.back().id);
  EXPECT_THAT(selectedBodies(), ElementsAre("leaks", "fine", "of the first"));
  EXPECT_EQ(model->reviews.reviewAnnotations()[0], first);
}

TEST_F(ReviewNotes, SaysWhatCouldNotBeStored) {
  folder.file("Orchestration", "in the way of the folder");
  start();
  app->selected().addReviewAnnotation("a", 1, "note", ReviewDecision::pending);
  EXPECT_NE(model->reviews.saveFailure(), "");
  EXPECT_THAT(selectedBodies(), ElementsAre("note"));
  std::filesystem::remove(folder / "Orchestration");
  app->selected().addReviewAnnotation("a", 1, "another", ReviewDecision::pending);
  EXPECT_EQ(model->reviews.saveFailure(), "");
  const std::string stored =
      TemporaryFolder::contentOf(folder / "Orchestration/review-annotations.json");
  EXPECT_THAT(stored, ::testing::HasSubstr("\"note\"")) << "it went with the next one";
}

}  // namespace
}  // namespace vantrell::tests
