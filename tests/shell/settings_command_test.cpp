#include <gmock/gmock.h>

#include "shell/program_fixture.h"
#include "support/private_keyring.h"

namespace vantrell {
namespace {

using testing::HasSubstr;
using tests::PrivateKeyring;

class SettingsCommand : public tests::TerminalProgram {
 protected:
  std::shared_ptr<tests::Record> settings(std::vector<std::string> words, std::string bus = {}) {
    words.insert(words.begin(), "settings");
    auto options = vantrell(std::move(words));
    options.standardInput = ProcessOptions::Input::null;
    if (!bus.empty()) options.environment["DBUS_SESSION_BUS_ADDRESS"] = std::move(bus);
    return run(std::move(options));
  }
};

TEST_F(SettingsCommand, ShowsWithoutMakingAnything) {
  const auto shown = settings({});
  EXPECT_EQ(code(shown), 0) << shown->error;
  EXPECT_THAT(shown->output, HasSubstr("workflow"));
  EXPECT_THAT(shown->output, HasSubstr(home / "config/vantrell/defaults.sqlite"));
  EXPECT_FALSE(files::exists(home / "config"));
  EXPECT_FALSE(files::exists(home / "data"));
}

TEST_F(SettingsCommand, ChangesAndForgets) {
  EXPECT_EQ(code(settings({"workflow", "plan"})), 0);
  EXPECT_EQ(settings({"workflow"})->output, "plan\n");
  EXPECT_EQ(code(settings({"set", "workflow", "review"})), 0);
  EXPECT_EQ(settings({"taskWorkflowMode.v1"})->output, "review\n");
  EXPECT_EQ(code(settings({"reset", "workflow"})), 0);
  EXPECT_EQ(settings({"workflow"})->output, "build\n");
}

TEST_F(SettingsCommand, TellsMistakesApartAndChangesNothing) {
  const std::tuple<std::vector<std::string>, int, std::string_view> cases[] = {
      {{"workflw"}, 2, "Did you mean workflow?"},
      {{"workflow", "plann"}, 2, "Did you mean plan?"},
      {{"set", "workflow"}, 2, "vantrell settings set NAME VALUE"},
      {{"reset"}, 2, "vantrell settings reset NAME"},
      {{"reset", "remote-host"}, 2, "not changed"},
      {{"mode", "full_access"}, 2, "person"},
      {{"workflow", "plan", "now"}, 2, "in quotes"},
      {{"--json", "workflow", "plan"}, 2, "Leave it out"},
      {{"--yes", "workflow", "plan"}, 2, "Unknown option --yes"},
  };
  for (const auto& [words, status, text] : cases) {
    const auto record = settings(words);
    EXPECT_EQ(code(record), status) << words[0];
    EXPECT_THAT(record->error, HasSubstr(std::string(text)));
    EXPECT_EQ(record->output, "");
  }
  EXPECT_FALSE(files::exists(home / "config"));
}

TEST_F(SettingsCommand, ImportReplacesOnlyWhatItMay) {
  const std::string file = home / "all.json";
  const auto titles = [&] { return run(vantrell({"tasks", "--json"}))->output; };
  ASSERT_EQ(code(run(vantrell({"new", "First"}))), 0);
  const auto exported = settings({"export", file});
  EXPECT_EQ(code(exported), 0) << exported->error;
  EXPECT_EQ(exported->output, "2 conversations in 2 projects written to \"" + file + "\".\n");
  ASSERT_EQ(code(run(vantrell({"new", "Second"}))), 0);
  const auto before = titles();

  const auto unasked = settings({"import", file});
  EXPECT_EQ(code(unasked), 2);
  EXPECT_THAT(unasked->error, HasSubstr("--yes"));
  EXPECT_EQ(titles(), before);

  const auto imported = settings({"import", "--yes", file});
  EXPECT_EQ(code(imported), 0) << imported->error;
  EXPECT_THAT(imported->output, HasSubstr("2 conversations in 2 projects imported."));
  EXPECT_THAT(titles(), HasSubstr("First"));
  EXPECT_THAT(titles(), testing::Not(HasSubstr("Second")));

  std::filesystem::remove_all(home / "data");
  EXPECT_EQ(code(settings({"import", file})), 0) << "there is nothing to replace";
  EXPECT_THAT(titles(), HasSubstr("First"));
}

TEST_F(SettingsCommand, ShowsButDoesNotChangeWhileTheProgramRuns) {
  ASSERT_EQ(code(settings({"workflow", "plan"})), 0);
  const auto lock = files::LockFile::acquire(home / "data/vantrell/lock");
  ASSERT_TRUE(lock);
  EXPECT_EQ(settings({"workflow"})->output, "plan\n");
  const auto refused = settings({"workflow", "review"});
  EXPECT_EQ(code(refused), 1);
  EXPECT_THAT(refused->error, HasSubstr("already running"));
  EXPECT_EQ(settings({"workflow"})->output, "plan\n");
}

TEST_F(SettingsCommand, TellsWhichSecretStoreIsInUseAndHowItIs) {
  const auto secretsOf = [](const auto& record) {
    const auto all = json::parseObject(record->output);
    EXPECT_TRUE(all) << record->output << record->error;
    const JsonObject* secrets = all ? json::object(*all, "secrets") : nullptr;
    return secrets ? json::textOr(*secrets, "kind", "") + " " + json::textOr(*secrets, "state", "")
                   : "";
  };
  EXPECT_EQ(secretsOf(settings({"--json"})), "files ok");
  PrivateKeyring keyring;
  const std::string bus = getenv("DBUS_SESSION_BUS_ADDRESS");
  EXPECT_EQ(secretsOf(settings({"--json"}, bus)), "keyring ok");
  EXPECT_EQ(code(settings({"unlock"}, bus)), 0);
  keyring.endLocked();
  EXPECT_EQ(secretsOf(settings({"--json"}, bus)), "keyring locked");
  const auto unlock = settings({"unlock"}, bus);
  EXPECT_EQ(code(unlock), 1);
  EXPECT_THAT(unlock->error, HasSubstr("The keyring is locked."));
}

}  // namespace
}  // namespace vantrell
