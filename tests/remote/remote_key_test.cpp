// Where the key of a host and the link of a client are kept, and that neither is lost with one of
// its places.
#include <fmt/format.h>
#include <gmock/gmock.h>

#include "platform/queues/manual_main_queue.h"
#include "platform/secrets/secret_queue.h"
#include "platform/storage/user_defaults.h"
#include "remote/client/remote_pairing_store.h"
#include "remote/host/remote_host_configuration.h"
#include "remote/protocol/remote_crypto.h"
#include "remote/protocol/remote_pairing.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

namespace host = RemoteHostConfiguration;

/// A store that can be out of reach.
struct TestStore final : SecretStore {
  Status status() override { return {}; }
  Result<std::optional<std::string>> readSecret(const std::string& service,
                                                const std::string&) override {
    if (isLocked) return std::unexpected(SecretError{SecretError::Kind::locked, "locked"});
    const auto found = secrets.find(service);
    return found == secrets.end() ? std::nullopt : std::optional(found->second);
  }
  Result<> writeSecret(const std::string& service, const std::string&,
                       const std::string& value) override {
    if (isLocked) return std::unexpected(SecretError{SecretError::Kind::locked, "locked"});
    secrets[service] = value;
    return {};
  }
  Result<> removeSecret(const std::string& service, const std::string&) override {
    secrets.erase(service);
    return {};
  }
  bool isLocked = false;
  std::map<std::string, std::string> secrets;
};

class RemoteKeyTest : public ::testing::Test {
 protected:
  template <typename Operation>
  auto answerOf(Operation operation) {
    std::optional<host::Key> key;
    operation(places_, [&](host::Key answer) { key = std::move(answer); });
    EXPECT_TRUE(main_.runUntil([&] { return key.has_value(); }));
    settle();
    return key.value_or(host::Key());
  }
  host::Key load() { return answerOf(host::loadOrCreateSecret); }
  host::Key rotate() { return answerOf(host::rotateSecret); }
  /// Lets the secret queue finish what was given to it.
  void settle() {
    bool isDone = false;
    queue_.run([](SecretStore&) { return 0; }, [&](int) { isDone = true; });
    EXPECT_TRUE(main_.runUntil([&] { return isDone; }));
  }

  std::string inFile() const { return folder_.contentOf(file_); }
  std::string& inSecrets() { return store_->secrets[host::secretService]; }
  std::optional<std::string> inDefaults() const { return defaults_->data(host::defaultsKey); }

  const std::string old_ = std::string(32, 'o');
  tests::TemporaryFolder folder_;
  const std::string file_ = folder_ / "support/remote-pairing.key";
  ManualMainQueue main_;
  BackgroundPool pool_{1};
  std::shared_ptr<TestStore> store_ = std::make_shared<TestStore>();
  SecretQueue queue_{store_, main_, pool_};
  std::unique_ptr<UserDefaults> defaults_ = UserDefaults::inMemory();
  host::Places places_{folder_ / "support", queue_, *defaults_};
};

TEST_F(RemoteKeyTest, IsMadeOnceAndKept) {
  const auto made = load().keyData;
  EXPECT_EQ(made.size(), 32u);
  EXPECT_EQ(load().keyData, made);
  EXPECT_EQ(inFile(), made);
  EXPECT_EQ(inSecrets(), made);
  EXPECT_FALSE(inDefaults());
  EXPECT_EQ(folder_.modeOf(file_), 0600u);
  EXPECT_EQ(folder_.modeOf(folder_ / "support"), 0700u);

  const auto changed = rotate().keyData;
  EXPECT_NE(changed, made);
  EXPECT_EQ(inFile(), changed);
  EXPECT_EQ(inSecrets(), changed);
  EXPECT_EQ(load().keyData, changed);
}

TEST_F(RemoteKeyTest, ComesFromThePlaceThatHasOne) {
  struct Case {
    std::string file, secret, defaults;
    char expected;  // what the key consists of
  };
  const auto key = [](char c) { return std::string(32, c); };
  const Case cases[] = {
      {key('f'), key('s'), key('d'), 'f'},
      {"", key('s'), key('d'), 's'},
      {std::string(31, 'f'), key('s'), "", 's'},
      {std::string(33, 'f'), std::string(31, 's'), key('d'), 'd'},
  };
  for (const auto& each : cases) {
    folder_.file("support/remote-pairing.key", each.file);
    inSecrets() = each.secret;
    defaults_->setData(host::defaultsKey, each.defaults);
    const auto expected = key(each.expected);
    EXPECT_EQ(load().keyData, expected);
    EXPECT_EQ(inFile(), expected);
    EXPECT_EQ(inSecrets(), expected);
    EXPECT_FALSE(inDefaults());
  }
}

TEST_F(RemoteKeyTest, LivesInTheDefaultsWhileTheFileCannotBeWritten) {
  folder_.file("support", "no folder");
  store_->isLocked = true;
  const auto made = load();
  EXPECT_EQ(made.problem, "");
  EXPECT_EQ(inDefaults(), made.keyData);
  EXPECT_EQ(load().keyData, made.keyData);

  std::filesystem::remove(folder_ / "support");
  EXPECT_EQ(load().keyData, made.keyData);
  EXPECT_EQ(inFile(), made.keyData);
  EXPECT_FALSE(inDefaults());
}

TEST_F(RemoteKeyTest, SaysWhenAnOldKeyMayReturn) {
  folder_.file("support/remote-pairing.key/in the way", "");
  inSecrets() = old_;
  const auto stored = rotate();
  EXPECT_EQ(stored.problem, "");
  EXPECT_EQ(inSecrets(), stored.keyData);

  store_->isLocked = true;
  const auto changed = rotate();
  EXPECT_THAT(changed.problem, ::testing::HasSubstr("so the old one may return"));
  EXPECT_EQ(inDefaults(), changed.keyData);
}

class PairingStoreTest : public RemoteKeyTest {
 protected:
  std::optional<std::string> load() {
    std::optional<std::optional<std::string>> answer;
    pairings_.load([&](std::optional<std::string> link) { answer = std::move(link); });
    EXPECT_TRUE(main_.runUntil([&] { return answer.has_value(); }));
    return answer.value_or(std::nullopt);
  }
  bool save(const std::string& link) {
    std::optional<bool> answer;
    pairings_.save(link, [&](bool isSaved) { answer = isSaved; });
    EXPECT_TRUE(main_.runUntil([&] { return answer.has_value(); }));
    return answer.value_or(false);
  }

  const std::string linkFile_ = folder_ / "support/Remote/host-pairing.link";
  const std::string link_ = makePairingLink({.host = "h", .keyData = old_, .name = "n"});
  MacRemotePairingStore pairings_{folder_ / "support", queue_};
};

TEST_F(PairingStoreTest, SurvivesTheLossOfEitherPlace) {
  EXPECT_EQ(load(), std::nullopt);
  EXPECT_TRUE(save(link_));
  EXPECT_EQ(folder_.modeOf(linkFile_), 0600u);
  EXPECT_EQ(folder_.modeOf(folder_ / "support/Remote"), 0700u);
  std::filesystem::remove(linkFile_);
  EXPECT_EQ(load(), link_);
  store_->isLocked = true;
  EXPECT_EQ(load(), link_);  // the file is back

  EXPECT_TRUE(save(link_ + "2"));
  std::filesystem::remove_all(folder_ / "support");
  folder_.file("support", "no folder");
  EXPECT_FALSE(save(link_));
  store_->isLocked = false;
  EXPECT_TRUE(save(link_));
  pairings_.remove();
  EXPECT_EQ(load(), std::nullopt);
}

TEST_F(PairingStoreTest, KeepsNothingThatIsNoLink) {
  EXPECT_FALSE(save("vantrell://pair?host=h"));
  EXPECT_FALSE(std::filesystem::exists(linkFile_));
  folder_.file("support/Remote/host-pairing.link", "damaged");
  EXPECT_EQ(load(), std::nullopt);
  store_->secrets[MacRemotePairingStore::secretService] = link_;
  EXPECT_EQ(load(), link_);
  pairings_.remove();
  settle();
  EXPECT_FALSE(std::filesystem::exists(linkFile_));
}

}  // namespace
}  // namespace vantrell
