#include "views/attachments.h"

#include <gtest/gtest.h>

#include "support/temporary_folder.h"
#include "views/transfer_words.h"

namespace vantrell::views {
namespace {

TEST(Attachments, KindTypeAndSizeAreThoseOfTheFile) {
  const tests::TemporaryFolder folder;
  const auto picture = attachmentFor(folder.file("Photo.TIFF", "1234"));
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->kind, ChatAttachmentKind::image);
  EXPECT_EQ(picture->contentType, "image/tiff");
  EXPECT_EQ(picture->byteCount, 4);
  EXPECT_EQ(picture->displayName, "Photo.TIFF");
  const auto drawing = attachmentFor(folder.file("png", ""));
  EXPECT_EQ(drawing->kind, ChatAttachmentKind::file) << "a name without an extension";
  EXPECT_FALSE(drawing->contentType);
  EXPECT_EQ(attachmentFor(folder.path())->kind, ChatAttachmentKind::directory);
  EXPECT_TRUE(attachmentFor("/no/such\nfile").error().contains("/no/such file"));
}

TEST(TransferWords, SayWhatAnImportWouldReplace) {
  auto workspace = Workspace::makeProject("/home/x/site", Date(0));
  EXPECT_EQ(importQuestion({}, "a.json"), "");
  EXPECT_EQ(importQuestion({workspace}, "a.json"),
            "Replace 1 conversation in 1 project\n  site (1 conversation)\nby those of \"a.json\"? "
            "The present ones are kept in a file.");
  EXPECT_EQ(countsOf(0, 2), "0 conversations in 2 projects");
  EXPECT_EQ(missingFoldersWarning(0), "");
  EXPECT_TRUE(missingFoldersWarning(1).starts_with("1 of the imported projects has no folder"));
}

}  // namespace
}  // namespace vantrell::views
