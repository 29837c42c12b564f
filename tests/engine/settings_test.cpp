#include "engine/core/settings.h"

#include <gtest/gtest.h>
#include <limits>
#include <set>

#include "engine/providers/setting_table.h"
#include "support/engine_fixture.h"

namespace vantrell {
namespace {

class StoredSettings : public testing::Test {
 protected:
  Settings loaded() {
    Settings settings(*defaults_, changes_);
    settings.load();
    return settings;
  }
  ManualMainQueue queue_;
  Changes changes_{queue_};
  std::unique_ptr<UserDefaults> defaults_ = UserDefaults::inMemory();
};

TEST_F(StoredSettings, UnknownTextsAndOtherTypesAreTheDefaults) {
  const char* keys[] = {"grokPermissionMode.v1",   "providerRoutingMode.v1", "taskWorkflowMode.v1",
                        "interfaceScale.v1",       "remoteHostEnabled.v1",   "noMeteredAPIs.v1",
                        "externalSessionImport.v1"};
  const std::function<void(const char*)> writers[] = {
      [&](const char* key) { defaults_->setText(key, "FULL_ACCESS"); },
      [&](const char* key) { defaults_->setText(key, ""); },
      [&](const char* key) { defaults_->setData(key, "full_access"); },
      [&](const char* key) {
        if (key != keys[3]) defaults_->setNumber(key, 2);
      },
  };
  for (const auto& write : writers) {
    for (const char* key : keys) write(key);
    const Settings settings = loaded();
    EXPECT_EQ(settings.permissionMode(), GrokPermissionMode::ask);
    EXPECT_EQ(settings.routingMode(), ProviderRoutingMode::automatic);
    EXPECT_EQ(settings.workflowMode(), TaskWorkflowMode::build);
    EXPECT_EQ(settings.interfaceScale(), 1.0);
    EXPECT_FALSE(settings.isRemoteHostEnabled());
    EXPECT_TRUE(settings.noMeteredAPIs());
    EXPECT_TRUE(settings.importsExternalSessions());
    EXPECT_FALSE(defaults_->boolean("noMeteredAPIs.v1")) << "what is not missing is not replaced";
  }
}

TEST_F(StoredSettings, AGuardThatIsOffStaysOff) {
  loaded();
  auto settings = loaded();
  settings.recordNoMeteredAPIs(false);
  settings.recordExternalSessionImport(false);
  EXPECT_FALSE(settings.noMeteredAPIs());
  EXPECT_FALSE(loaded().noMeteredAPIs());
  EXPECT_FALSE(loaded().importsExternalSessions());
}

TEST_F(StoredSettings, TheScaleIsAlwaysAStep) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  const std::pair<double, double> cases[] = {
      {0.0, 1.0},    {-0.0, 1.0},   {1.26, 1.3},     {1.24, 1.2},      {1e308, 1.5},
      {-1e308, 0.8}, {-1.0, 0.8},   {infinity, 1.5}, {-infinity, 0.8}, {5e-324, 0.8},
      {0.84, 0.8},   {1.4999, 1.5}, {0.8, 0.8},
  };
  for (const auto& [stored, scale] : cases) {
    defaults_->setNumber("interfaceScale.v1", stored);
    EXPECT_EQ(loaded().interfaceScale(), scale) << stored;
    auto settings = loaded();
    settings.setInterfaceScale(stored);
    EXPECT_EQ(settings.interfaceScale(), scale) << stored;
    EXPECT_EQ(defaults_->number("interfaceScale.v1"), scale) << stored;
  }
  auto settings = loaded();
  settings.setInterfaceScale(std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(defaults_->number("interfaceScale.v1"), 1.0);
}

TEST(SettingsTable, ReadsWhatIsStoredAndElseWhatHolds) {
  const auto defaults = UserDefaults::inMemory();
  const auto value = [&](std::string_view name) {
    return readSetting(*settingNamed(name), *defaults);
  };
  for (const auto& [name, text] :
       {std::pair("remote-host", "off"), {"local-runtime", "automatic"}, {"kimi-path", ""}}) {
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
      {"kimi-path", "", {}, "Reset kimi-path to use the program"},
      {"glm-model", "zai-coding-plan/glm-5 ", "zai-coding-plan/glm-5", ""},
      {"glm-model", "other/model", {}, "billed per use"},
      {"claude-model", "default", {}, "Reset claude-model"},
      {"local-url", " http://127.0.0.1:8080/v1 ", "http://127.0.0.1:8080/v1", ""},
      {"local-url", "http://example.org", {}, "private-network"},
      {"local-url", "", {}, "Reset local-url"},
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

using enum SettingsOperations::FullAccess;

class SettingsOperationsTest : public tests::EngineFixture {
 protected:
  std::string changed(std::string_view name, std::string_view text,
                      SettingsOperations::FullAccess fullAccess = notConfirmed) {
    const auto done = model->settingsOperations.change(name, text, key, fullAccess);
    return done ? *done : done.error().sentence;
  }
  std::string value(std::string_view name) {
    const auto read = model->settingsOperations.value(*settingNamed(name));
    return read.isStored ? read.text : "(" + read.text + ")";
  }
};

TEST_F(SettingsOperationsTest, EverySettingIsStoredReadBackAndForgotten) {
  start();
  for (const auto& [name, text] : {std::pair("mode", "auto"),
                                   {"workflow", "review"},
                                   {"route", "kimi"},
                                   {"no-metered", "off"},
                                   {"session-import", "off"},
                                   {"scale", "1.3"},
                                   {"grok-path", "/bin/true"},
                                   {"glm-model", "zai-coding-plan/glm-5"},
                                   {"claude-model", "opus"},
                                   {"local-runtime", "ollama"},
                                   {"local-url", "http://127.0.0.1:8080/v1"}}) {
    const auto usual = "(" + readSetting(*settingNamed(name), *UserDefaults::inMemory()).text + ")";
    EXPECT_EQ(changed(name, text), "") << name;
    EXPECT_EQ(value(name), text) << name;
    EXPECT_TRUE(model->settingsOperations.reset(name, key)) << name;
    EXPECT_EQ(value(name), usual) << name;
  }
  EXPECT_EQ(model->settings.permissionMode(), GrokPermissionMode::ask);
  EXPECT_EQ(model->settings.interfaceScale(), 1.0);
  EXPECT_TRUE(model->settings.noMeteredAPIs());
  EXPECT_EQ(changed("mode", "ask"), "");
  EXPECT_EQ(value("mode"), "ask") << "stored, though it held already";
}

TEST_F(SettingsOperationsTest, TakeEffectAtOnceAndByTheRules) {
  start();
  EXPECT_EQ(changed("mode", "full_access"),
            "Full Access has to be confirmed by a person at this machine.");
  EXPECT_EQ(value("mode"), "(ask)");
  work("Go");
  const std::string refusal = changed("mode", "auto");
  EXPECT_TRUE(refusal.contains("Wait until the turn has ended")) << refusal;
  client().finishes();
  EXPECT_EQ(changed("mode", "full_access", confirmed), "");
  EXPECT_EQ(client().stops, 1) << "the next turn starts a client in the new mode";
  EXPECT_EQ(changed("workflow", "plan"), "A plan never begins with full access: mode is ask now.");
  EXPECT_EQ(value("mode"), "ask");
  EXPECT_EQ(model->settings.workflowMode(), TaskWorkflowMode::plan);
  EXPECT_EQ(model->settings.permissionModeFor({.permissionMode = GrokPermissionMode::fullAccess}),
            GrokPermissionMode::ask);

  providers.connectors[AgentProvider::glm].modelOptions = [](const auto&) {
    return std::vector<ProviderModelOption>();
  };
  model->catalog->reported(AgentProvider::glm, {{"m", "M", "", false, {}}});
  changed("glm-model", "zai-coding-plan/glm-5");
  EXPECT_FALSE(offers(model->catalog->options(AgentProvider::glm), "m"));
  const int detections = providers.localRefreshes;
  changed("local-runtime", "ollama");
  EXPECT_EQ(providers.localRefreshes, detections + 1);
}

TEST_F(SettingsOperationsTest, RefuseWhatTheyCannotDo) {
  start();
  EXPECT_EQ(changed("modus", "ask"), "There is no setting \"modus\".");
  EXPECT_TRUE(changed("mode", "AUTO").contains("ask, auto or full_access"));
  EXPECT_TRUE(changed("remote-host", "on").contains("not changed"));
  EXPECT_TRUE(changed("tasklet-webhook", "https://a").contains("secret"));
  EXPECT_FALSE(model->settingsOperations.reset("tasklet-webhook", key));
  std::vector<std::string> ends;
  for (const auto& [name, text] : {std::pair("tasklet-webhook", "http://a"),
                                   {"mode", "ask"},
                                   {"tasklet-webhook", "https://a"}}) {
    model->settingsOperations.changeSecret(name, text, [&](const Result<>& done) {
      ends.push_back(done ? "" : done.error().sentence);
    });
  }
  EXPECT_EQ(ends, (std::vector<std::string>{
                      "The address must begin with https://. Nothing was changed.",
                      "mode is not a secret.", "Could not save the Tasklet webhook in Keychain."}));
}

TEST(InterfaceScale, StepsThroughAllEightAndStaysAtTheEnds) {
  const double steps[] = {0.8, 0.9, 1.0, 1.1, 1.2, 1.3, 1.4, 1.5};
  for (std::size_t i = 0; i < std::size(steps); ++i) {
    EXPECT_EQ(VantrellInterfaceScale::increased(steps[i]), steps[std::min<std::size_t>(i + 1, 7)]);
    EXPECT_EQ(VantrellInterfaceScale::decreased(steps[i]), steps[i == 0 ? 0 : i - 1]);
  }
  EXPECT_EQ(VantrellInterfaceScale::increased(1.26), 1.4) << "the nearest step first";
  EXPECT_EQ(VantrellInterfaceScale::decreased(1.26), 1.2);
  EXPECT_EQ(VantrellInterfaceScale::increased(0), 1.1);
  EXPECT_EQ(VantrellInterfaceScale::decreased(1e308), 1.4);
}

}  // namespace
}  // namespace vantrell
