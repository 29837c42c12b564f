// Who may call: keys are made, stored as hashes, found in requests, and never lost with a file.
#include "gateway/site_keys.h"

#include <gmock/gmock.h>

#include "gateway/gateway_store.h"
#include "gateway/site_key_secret.h"
#include "platform/crypto/crypto.h"
#include "platform/queues/manual_main_queue.h"
#include "support/held_executor.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

using Headers = GatewayHeaders;

class SiteKeysTest : public ::testing::Test {
 protected:
  SiteKeysTest() {
    watch_ = changes_.observe([this](const ChangeBatch& batch) {
      for (const auto& each : batch.saveFailures) failures_.push_back(each);
      for (const auto& each : batch.notices) notices_.push_back(each);
    });
    open();
  }
  void open() {
    keys_.reset();
    store_.reset();
    store_ = std::make_unique<GatewayStore>(main_, changes_, folder_ / "data", background_);
    keys_ = std::make_unique<SiteKeys>(main_, changes_, *store_);
    keys_->load();
  }
  SiteKeys::Created make(const std::string& name = "shop") {
    const auto made =
        keys_->create(name, {{folder_.folder("project")}, {AgentProvider::local}, {}});
    EXPECT_TRUE(made);
    return *made;
  }
  std::string stored() const { return folder_.contentOf(path_); }

  tests::TemporaryFolder folder_;
  const std::string path_ = folder_ / "data/personal-gateway.json";
  ManualMainQueue main_;
  Changes changes_{main_};
  tests::HeldExecutor background_;
  std::vector<std::string> failures_;
  std::vector<std::string> notices_;
  Changes::Observation watch_;
  std::unique_ptr<GatewayStore> store_;
  std::unique_ptr<SiteKeys> keys_;
};

TEST_F(SiteKeysTest, SecretIsShownOnceAndStoredAsItsHash) {
  EXPECT_EQ(siteKeySecret::hashOf("abc"), "ungWv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0=");
  const auto made = make();
  EXPECT_THAT(made.secret, ::testing::MatchesRegex("vtl_[A-Za-z0-9_-]+"));
  EXPECT_EQ(made.secret.size(), 47u);
  EXPECT_NE(make("other").secret, made.secret);
  main_.runReady();
  EXPECT_FALSE(stored().contains(made.secret.substr(4)));
  EXPECT_TRUE(stored().contains(siteKeySecret::hashOf(made.secret)));
  EXPECT_EQ(folder_.modeOf(path_), 0600u);
  EXPECT_EQ(folder_.modeOf(folder_ / "data"), 0700u);
  open();
  ASSERT_EQ(keys_->configuration().siteKeys.size(), 2u);
  EXPECT_TRUE(keys_->authenticate({{"x-api-key", made.secret}}));
}

TEST_F(SiteKeysTest, RequestShowsItsSecretInOneOfTwoHeaders) {
  const std::string secret = make().secret;
  const struct {
    Headers headers;
    bool isKnown;
  } cases[] = {
      {{{"authorization", "Bearer " + secret}}, true},
      {{{"authorization", "bearer   " + secret + " \t"}}, true},
      {{{"authorization", "BEARER \t" + secret}}, true},
      {{{"authorization", secret}}, false},
      {{{"authorization", "Basic " + secret}}, false},
      {{{"authorization", "Basic eDp5"}, {"x-api-key", secret}}, true},
      {{{"authorization", "Bearer wrong"}, {"x-api-key", secret}}, false},
      {{{"x-api-key", " " + secret + "\t"}}, true},
      {{{"x-api-key", secret.substr(0, 46)}}, false},
      {{{"x-api-key", secret + "x"}}, false},
      {{{"x-api-key", keys_->configuration().siteKeys[0].secretHash}}, false},
      {{{"x-api-key", ""}}, false},
      {{}, false},
  };
  for (const auto& [headers, isKnown] : cases) {
    EXPECT_EQ(keys_->authenticate(headers) != nullptr, isKnown)
        << ::testing::PrintToString(headers.all());
  }
}

TEST_F(SiteKeysTest, ComparesTextsOfAnyLengths) {
  for (const std::string_view one : {"", "a", "ab", "abc", "abd"}) {
    for (const std::string_view other : {"", "a", "ab", "abc", "abd"}) {
      EXPECT_EQ(crypto::equalInConstantTime(one, other), one == other) << one << "|" << other;
    }
  }
}

TEST_F(SiteKeysTest, KeyWithoutANameOrReachIsRefused) {
  const std::set<std::string> paths{folder_.path()};
  const std::set providers{AgentProvider::kimi};
  EXPECT_EQ(keys_->create(" \n", {paths, providers, {}}).error().sentence,
            "Enter a name for this site key.");
  const auto noReach = refuse("Choose at least one project and one provider.");
  EXPECT_EQ(keys_->create("a", {{}, providers, {}}).error(), noReach.error());
  EXPECT_EQ(keys_->create("a", {paths, {}, {}}).error(), noReach.error());
  EXPECT_TRUE(keys_->configuration().siteKeys.empty());
  for (const auto port : {-1, 0, 1023, 65536}) EXPECT_FALSE(keys_->setPort(port)) << port;
  for (const auto port : {1024, 65535}) EXPECT_TRUE(keys_->setPort(port)) << port;
}

TEST_F(SiteKeysTest, UseIsStoredOnceAMinute) {
  const Headers headers{{"x-api-key", make().secret}};
  std::vector<bool> isWritten;
  for (const auto pause : {0, 59, 1, 60}) {
    main_.advance(std::chrono::seconds(pause));
    main_.runReady();
    const auto before = stored();
    keys_->authenticate(headers);
    main_.runReady();
    isWritten.push_back(stored() != before);
  }
  // The date of each use counts, also where it stayed in memory.
  EXPECT_THAT(isWritten, ::testing::ElementsAre(true, false, false, true));
}

TEST_F(SiteKeysTest, FileThatCannotBeReadIsQuarantined) {
  folder_.file("data/personal-gateway.json", R"({"enabled": true, "port": 9, "siteKeys": []})");
  open();
  EXPECT_EQ(keys_->configuration(), GatewayConfiguration());
  keys_->setEnabled(true);
  main_.runReady();
  EXPECT_EQ(folder_.names("data").size(), 2u) << "the old file lies beside the new one";
  EXPECT_EQ(notices_.size(), 1u);

  for (const auto* port : {"65536", "-1", "\"80\""}) {
    folder_.file("data/personal-gateway.json",
                 R"({"enabled": true, "listenMode": "localhost", "siteKeys": [], "port": )" +
                     std::string(port) + "}");
    open();
    EXPECT_EQ(keys_->configuration(), GatewayConfiguration()) << port;
  }
}

TEST_F(SiteKeysTest, FailedSaveIsToldAndTriedAgain) {
  // A file in the place of the folder: what a full disk does to a write, for root too.
  folder_.file("data", "");
  const auto made = make();
  bool isSaved = false;
  store_->whenSaved([&] { isSaved = true; });
  EXPECT_FALSE(isSaved) << "not before it was tried";
  main_.runReady();
  EXPECT_TRUE(isSaved) << "a caller is not left waiting";
  EXPECT_THAT(failures_, ::testing::ElementsAre(::testing::StartsWith(
                             "The gateway's site keys could not be saved: ")));
  EXPECT_FALSE(store_->flush());
  std::filesystem::remove(folder_ / "data");
  keys_->authenticate({{"x-api-key", made.secret}});
  main_.advance(GatewayStore::retryPause);
  EXPECT_TRUE(stored().contains(siteKeySecret::hashOf(made.secret)));
  EXPECT_TRUE(store_->flush());
}

TEST_F(SiteKeysTest, SlowDiskGetsTheNewestStateInOrder) {
  background_.isHeld = true;
  keys_->setEnabled(true);
  for (const auto port : {2001, 2002, 2003}) EXPECT_TRUE(keys_->setPort(port));
  int saved = 0;
  store_->whenSaved([&] { ++saved; });
  EXPECT_EQ(background_.held.size(), 1u);
  background_.release();
  main_.runReady();
  EXPECT_EQ(saved, 1);
  EXPECT_TRUE(stored().contains("2003"));
  background_.isHeld = true;
  EXPECT_TRUE(keys_->setPort(2004));
  EXPECT_TRUE(store_->flush()) << "does not wait for a background that is busy";
  EXPECT_TRUE(stored().contains("2004"));
}

}  // namespace
}  // namespace vantrell
