#include "runtimes/tasklet/tasklet_webhook.h"

#include <gtest/gtest.h>

#include "platform/queues/manual_main_queue.h"
#include "platform/secrets/secret_queue.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

TEST(TaskletConfiguration, TakesHttpsAlone) {
  const std::pair<std::string, std::string> cases[]{
      {"https://tasklet.example/hook?k=v", "https://tasklet.example/hook?k=v"},
      {" \n\thttps://h/x \n", "https://h/x"},
      {"HTTPS://h/x", "HTTPS://h/x"},
      {"http://localhost/x", ""},
      {"https:///x", ""},
      {"h/x", ""},
      {"", ""},
  };
  for (const auto& [text, expected] : cases) {
    const auto url = TaskletConfiguration::validatedWebhookURL(text);
    EXPECT_EQ(url ? url->text() : "", expected) << text;
  }
}

class TaskletWebhookTest : public testing::Test {
 protected:
  bool save(std::string_view text) {
    std::optional<bool> result;
    webhook_->save(text, [&](bool isSaved) { result = isSaved; });
    main_.runUntil([&] { return result.has_value(); });
    return result.value();
  }
  void load() {
    bool isLoaded = false;
    webhook_->load([&] { isLoaded = true; });
    ASSERT_TRUE(main_.runUntil([&] { return isLoaded; }));
  }
  std::string url() const { return webhook_->url() ? webhook_->url()->text() : ""; }
  std::optional<std::string> stored() { return store_->read(service_, account_).value(); }

  const std::string service_ = TaskletConfiguration::secretService;
  const std::string account_ = TaskletConfiguration::secretAccount;
  tests::TemporaryFolder folder_;
  ManualMainQueue main_;
  BackgroundPool pool_{1};
  std::shared_ptr<SecretStore> store_ = SecretStore::files(folder_ / "secrets");
  SecretQueue secrets_{store_, main_, pool_};
  std::shared_ptr<TaskletWebhook> webhook_ = TaskletWebhook::make(secrets_);
};

TEST_F(TaskletWebhookTest, IsReadFromTheSecretStore) {
  EXPECT_FALSE(webhook_->isConfigured());
  for (const auto& [value, expected] :
       {std::pair{"https://h/x", "https://h/x"}, {"http://h/x", ""}, {"https://h/\xFF", ""}}) {
    ASSERT_TRUE(store_->write(service_, account_, value));
    load();
    EXPECT_EQ(url(), expected);
  }
}

TEST_F(TaskletWebhookTest, IsStoredTrimmedAndForgottenByEmptyText) {
  EXPECT_TRUE(save(" https://h/x\n"));
  EXPECT_EQ(stored(), "https://h/x");
  EXPECT_EQ(url(), "https://h/x");
  EXPECT_TRUE(save("http://h/x"));
  EXPECT_EQ(stored(), "http://h/x") << "what the user typed is kept";
  EXPECT_FALSE(webhook_->isConfigured());
  EXPECT_TRUE(save(" \n"));
  EXPECT_EQ(stored(), std::nullopt);
  EXPECT_TRUE(save("")) << "also when there is none";
}

TEST_F(TaskletWebhookTest, StaysAsItWasWhenItCannotBeStored) {
  ASSERT_TRUE(save("https://h/x"));
  std::filesystem::remove_all(folder_ / "secrets");
  folder_.file("secrets", "a file in the way");
  EXPECT_FALSE(save("https://h/y"));
  EXPECT_EQ(url(), "https://h/x");
  EXPECT_FALSE(webhook_->problem().empty());
}

}  // namespace
}  // namespace vantrell
