#include "views/approval_card.h"

#include <gtest/gtest.h>

namespace vantrell::views {
namespace {

PermissionRequest request() {
  return {.id = 7,
          .title = "Run\nls",
          .detail = "one\n\xE2\x80\xAEtwo\x1b[2J\n",
          .options = {{"yes", "Allow once", "allow_once"},
                      {"1", "Odd \x1b[31m name", "allow_always"},
                      {"no", "Reject", "reject_once"}}};
}

TEST(ApprovalCard, ShowsAllOfTheQuestionAndNothingHidden) {
  auto asked = request();
  const auto card = approvalCard(asked);
  EXPECT_EQ(card.requestID, 7);
  EXPECT_EQ(card.title, "Run ls");
  EXPECT_EQ(card.detail, (std::vector<std::string>{"one", "<U+202E>two␛[2J"}));
  ASSERT_EQ(card.options.size(), 3U);
  EXPECT_EQ(card.options[1].name, "Odd ␛[31m name");
  EXPECT_TRUE(card.options[2].isRefusal && !card.options[0].isRefusal);
  asked.detail = std::string(5000, 'x') + "\n" + std::string(200, '\n') + "end";
  const auto detail = approvalCard(asked).detail;
  ASSERT_EQ(detail.size(), 202U) << "a long one is not cut";
  EXPECT_EQ(detail.front().size(), 5000U);
  EXPECT_EQ(detail.back(), "end");
}

TEST(ApprovalCard, AnswerIsANumberOrAnId) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"1", "yes"},  // the number that is seen, not the id "1"
      {" 2 ", "1"},
      {"3", "no"},
      {"no", "no"},
      {"yes\r", "yes"}};
  auto asked = request();
  for (const auto& [word, id] : cases) {
    const auto answer = readAnswer(asked, word);
    ASSERT_TRUE(answer) << word;
    EXPECT_EQ((*answer)->id, id);
  }
  for (const auto* word : {"", "0", "4", "-1", "1x", "maybe", "99999999999999999999"}) {
    const auto answer = readAnswer(asked, word);
    ASSERT_FALSE(answer) << word;
    EXPECT_TRUE(answer.error().contains("from 1 to 3")) << answer.error();
  }
  asked.options.resize(1);
  EXPECT_EQ(readAnswer(asked, " \n").error(), "Answer with 1.");
}

TEST(ApprovalCard, DevicesNeverAllowForGood) {
  const auto asked = request();
  EXPECT_EQ(optionOfKind(asked, "allow_always")->id, "1");
  EXPECT_EQ(optionOfKind(asked, "reject_always"), nullptr);
  const auto offered = optionsForDevices(asked);
  ASSERT_EQ(offered.size(), 2U);
  EXPECT_EQ(offered[0].id + offered[1].id, "yesno");
}

}  // namespace
}  // namespace vantrell::views
