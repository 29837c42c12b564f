#include "presentation/conversation_markdown.h"

#include <gtest/gtest.h>

namespace vantrell {
namespace {

TEST(ConversationMarkdown, HasWhatWasSaidAndByWhom) {
  const auto entry = [](ChatEntryKind kind, std::string text) {
    ChatEntry made;
    made.kind = kind;
    made.text = std::move(text);
    return made;
  };
  auto asked = entry(ChatEntryKind::user, " Why? \n");
  asked.attachments = {{.displayName = "a.png"}, {.displayName = "b c.txt"}};
  auto alone = entry(ChatEntryKind::user, "\n");
  alone.attachments = {{.displayName = "only"}};
  auto answer = entry(ChatEntryKind::assistant, "Because.");
  answer.provider = AgentProvider::glm;
  auto note = entry(ChatEntryKind::system, "Handed over.");
  note.title = "Hand-off";
  const Transcript entries(std::vector<ChatEntry>{
      asked, entry(ChatEntryKind::thought, "hm"), entry(ChatEntryKind::tool, "{}"), answer,
      entry(ChatEntryKind::assistant, "So."), entry(ChatEntryKind::assistant, " \n"), note,
      entry(ChatEntryKind::system, "Stopped."), alone});
  EXPECT_EQ(ConversationMarkdown::render("Title", "House", entries),
            "# Title\n\n_Workspace: House_\n\n"
            "## You\n\nWhy?\n\n- Attachment: `a.png`\n- Attachment: `b c.txt`\n\n"
            "## GLM\n\nBecause.\n\n## Assistant\n\nSo.\n\n## Hand-off\n\nHanded over.\n\n"
            "## Status\n\nStopped.\n\n## You\n\n- Attachment: `only`\n");
  EXPECT_EQ(ConversationMarkdown::render("T", "", {}), "# T\n");
  EXPECT_EQ(ConversationMarkdown::render("T", std::nullopt, {}), "# T\n");
}

}  // namespace
}  // namespace vantrell
