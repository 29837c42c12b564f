#include "engine/core/settings.h"

#include <gtest/gtest.h>
#include <limits>

#include "platform/queues/manual_main_queue.h"
#include "platform/storage/user_defaults.h"

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

TEST_F(StoredSettings, EveryStoredTextIsReadBack) {
  for (const auto text : rawTexts(GrokPermissionMode{})) {
    defaults_->setText("grokPermissionMode.v1", text);
    EXPECT_EQ(rawText(loaded().permissionMode()), text);
  }
  for (const auto text : rawTexts(ProviderRoutingMode{})) {
    defaults_->setText("providerRoutingMode.v1", text);
    EXPECT_EQ(rawText(loaded().routingMode()), text);
  }
  for (const auto text : rawTexts(TaskWorkflowMode{})) {
    defaults_->setText("taskWorkflowMode.v1", text);
    EXPECT_EQ(rawText(loaded().workflowMode()), text);
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
