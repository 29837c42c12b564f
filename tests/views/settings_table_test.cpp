#include "views/settings_table.h"

#include <gtest/gtest.h>

#include "platform/storage/user_defaults.h"
#include "support/temporary_folder.h"
#include "views/attachments.h"
#include "views/transfer_words.h"

namespace vantrell::views {
namespace {

TEST(SettingsTable, ReadsWhatIsStoredAndElseWhatHolds) {
  const auto defaults = UserDefaults::inMemory();
  const auto value = [&](std::string_view name) {
    return readSetting(*settingNamed(name), *defaults);
  };
  for (const auto& [name, text] : {std::pair("mode", "ask"),
                                   {"route", "automatic"},
                                   {"no-metered", "on"},
                                   {"remote-host", "off"},
                                   {"scale", "1.0"},
                                   {"local-runtime", "automatic"},
                                   {"kimi-path", ""}}) {
    EXPECT_EQ(value(name).text, text) << name;
    EXPECT_FALSE(value(name).isStored) << name;
  }
  defaults->setText("grokPermissionMode.v1", "of a later version");
  defaults->setBoolean("noMeteredAPIs.v1", false);
  defaults->setNumber("interfaceScale.v1", 1.26);
  defaults->setText("externalSessionImport.v1", "odd");
  defaults->setText("localRuntimeKind.v1", "lm_studio");
  EXPECT_EQ(value("mode").text, "ask");
  EXPECT_TRUE(value("mode").isStored);
  EXPECT_EQ(value("no-metered").text, "off");
  EXPECT_EQ(value("scale").text, "1.3");
  EXPECT_EQ(value("session-import").text, "on");
  EXPECT_EQ(value("local-runtime").text, "lm_studio");
  EXPECT_EQ(settingNamed("localRuntimeKind.v1"), settingNamed("local-runtime"));
  EXPECT_EQ(settingNamed(""), nullptr);
}

TEST(SettingsTable, ChecksWhatIsTypedAndSaysWhatIsWrong) {
  struct Case {
    std::string_view name;
    std::string text;
    std::optional<std::string> stored;  // else refused, with these words
    std::string words;
  };
  const Case cases[] = {
      {"mode", "auto", "auto", ""},
      {"mode", "AUTO", {}, "ask, auto or full_access"},
      {"route", "kimmy", {}, "tasklet"},
      {"local-runtime", "LM Studio", {}, "lm_studio"},
      {"mode", "foo\n", {}, "mode cannot be \"foo\"; it takes ask, auto or full_access."},
      {"no-metered", "yes", "on", ""},
      {"no-metered", "1", {}, "on or off"},
      {"scale", "1.26", "1.3", ""},
      {"scale", "1.6", {}, "from 0.8 to 1.5"},
      {"scale", "nan", {}, "from 0.8 to 1.5"},
      {"scale", "1e308", {}, "from 0.8 to 1.5"},
      {"scale", "1.2x", {}, "from 0.8 to 1.5"},
      {"grok-path", "/bin/../bin/true", "/bin/true", ""},
      {"kimi-path", "/bin/sh", "/bin/sh", ""},
      {"kimi-path", "/tmp", {}, "cannot be executed: it is a folder"},
      {"kimi-path", "/no/such", {}, "there is no such file"},
      {"kimi-path", "", {}, "settings reset kimi-path"},
      {"glm-model", "zai-coding-plan/glm-5 ", "zai-coding-plan/glm-5", ""},
      {"glm-model", "other/model", {}, "billed per use"},
      {"claude-model", "default", {}, "settings reset claude-model"},
      {"local-url", " http://127.0.0.1:8080/v1 ", "http://127.0.0.1:8080/v1", ""},
      {"local-url", "http://example.org", {}, "private-network"},
      {"local-url", "", {}, "settings reset local-url"},
      {"local-url", "ftp://x", {}, "Enter a valid"},
      {"remote-host", "on", {}, "not changed"},
  };
  for (const auto& [name, text, stored, words] : cases) {
    SCOPED_TRACE(std::string(name) + " " + text);
    const auto checked = checkedSetting(*settingNamed(name), text);
    EXPECT_EQ(checked ? std::optional(*checked) : std::nullopt, stored);
    if (!checked) {
      EXPECT_TRUE(checked.error().contains(words)) << checked.error();
    }
  }
}

TEST(SettingsTable, EachRowHasANameAndAKeyOfItsOwn) {
  std::set<std::string_view> words;
  for (const auto& row : settingRows()) {
    EXPECT_TRUE(words.insert(row.name).second) << row.name;
    EXPECT_EQ(settingNamed(row.name), &row);
    if (row.isSecret()) continue;
    EXPECT_TRUE(words.insert(row.key).second) << row.key;
    EXPECT_EQ(settingNamed(row.key), &row);
  }
}

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
