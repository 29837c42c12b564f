#include "platform/secrets/secret_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/queues/manual_main_queue.h"
#include "platform/queues/run_loop.h"
#include "platform/secrets/secret_queue.h"
#include "support/in_child.h"
#include "support/private_keyring.h"

namespace vantrell {
namespace {

using testing::HasSubstr;
using tests::Environment;
using tests::PrivateKeyring;
using tests::TemporaryFolder;
using Kind = SecretError::Kind;

const SecretServiceOptions quick{.timeLimit = std::chrono::seconds(10), .labelPrefix = "example"};

class SecretFiles : public testing::Test {
 protected:
  TemporaryFolder folder_;
  std::unique_ptr<SecretStore> secrets_ = SecretStore::files(folder_ / "secrets");
};

TEST_F(SecretFiles, AreToldApartByEveryCharacterOfTheirNames) {
  const std::pair<std::string, std::string> names[] = {
      {"service", "account"},
      {"servic", "eaccount"},
      {"service@account", ""},
      {"service", "@account"},
      {"service@", "account"},
      {"Service", "account"},
      {"../../service", "a"},
      {"..", ".."},
      {"", ""},
      {"%2e%2e", ".."},
      {".hidden", "a/b"},
      {"gr\u00f6\u00dfe", "\u96EA\n"},
  };
  for (const auto& [service, account] : names) {
    const auto absent = secrets_->read(service, account);
    ASSERT_TRUE(absent) << absent.error().description;
    EXPECT_FALSE(*absent) << service << " " << account;
    ASSERT_TRUE(secrets_->write(service, account, service + "|" + account));
  }
  for (const auto& [service, account] : names) {
    EXPECT_EQ(secrets_->read(service, account).value(), service + "|" + account);
  }
  EXPECT_EQ(folder_.names("secrets").size(), std::size(names));
  EXPECT_EQ(folder_.names(), std::set<std::string>{"secrets"}) << "nothing left the folder";
}

TEST_F(SecretFiles, AreAnyBytesAndCanBeReplacedAndRemoved) {
  const std::string bytes("\0\xFF\n\0", 4);
  ASSERT_TRUE(secrets_->write("service", "account", "old"));
  ASSERT_TRUE(secrets_->write("service", "account", bytes));
  EXPECT_EQ(secrets_->read("service", "account").value(), bytes);
  ASSERT_TRUE(secrets_->write("service", "account", ""));
  EXPECT_EQ(secrets_->read("service", "account").value(), "") << "empty is not absent";
  ASSERT_TRUE(secrets_->remove("service", "account"));
  EXPECT_EQ(secrets_->read("service", "account").value(), std::nullopt);
  EXPECT_TRUE(secrets_->remove("service", "account"));
}

TEST_F(SecretFiles, RefuseWhatNotEveryStoreCouldKeep) {
  const std::string longest(SecretStore::longestName, '@');
  EXPECT_TRUE(secrets_->write(longest, "", std::string(SecretStore::longestValue, 'x')));
  EXPECT_TRUE(secrets_->read(longest, "").value());
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {longest, "x", "value"},
      {std::string("a\0b", 3), "x", "value"},
      {"a", "\xFF", "value"},
      {"a", "b", std::string(SecretStore::longestValue + 1, 'x')},
  };
  for (const auto& [service, account, value] : cases) {
    const auto written = secrets_->write(service, account, value);
    ASSERT_FALSE(written) << service;
    EXPECT_EQ(written.error().kind, Kind::failed);
    EXPECT_THAT(written.error().description, HasSubstr("stored"));
  }
}

TEST_F(SecretFiles, AreForTheirOwnerOnly) {
  const std::string place = folder_.folder("secrets");
  ASSERT_EQ(chmod(place.c_str(), 0755), 0);
  const mode_t mask = umask(0);
  ASSERT_TRUE(secrets_->write("service", "account", "value"));
  umask(mask);
  EXPECT_EQ(TemporaryFolder::modeOf(place), 0700u);
  EXPECT_EQ(TemporaryFolder::modeOf(place + "/service@account.secret"), 0600u);
}

TEST_F(SecretFiles, SayWhenTheFolderDeniesThem) {
  tests::expectOnSmallVolume(folder_.path(), "1m", [&] {
    if (!tests::makeReadOnly(folder_.path())) return 1;
    const auto written = secrets_->write("service", "account", "x");
    return !written && written.error().kind == Kind::denied ? 0 : 2;
  });
}

// ---- the choice ---------------------------------------------------------------------------------

class ChosenSecretStore : public testing::Test {
 protected:
  /// As a new start of the program would have it.
  std::unique_ptr<SecretStore> started() { return SecretStore::chosen(folder_ / "secrets", quick); }
  void withoutBus() {
    environment_.set("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
    environment_.set("XDG_RUNTIME_DIR", folder_.path());
  }
  bool hasFiles() const {
    for (const std::string& name : folder_.names("secrets")) {
      if (name.ends_with(".secret")) return true;
    }
    return false;
  }
  TemporaryFolder folder_;
  Environment environment_;
};

TEST_F(ChosenSecretStore, IsTheKeyringWhereOneAnswersAndStaysIt) {
  {
    PrivateKeyring keyring;
    ASSERT_TRUE(started()->write("service", "account", "value"));
    EXPECT_EQ(started()->read("service", "account").value(), "value");
    EXPECT_FALSE(hasFiles());
  }
  withoutBus();
  const auto later = started();
  EXPECT_EQ(later->status().kind, SecretStore::Kind::secretService);
  for (const auto& error : {later->read("service", "account").error(),
                            later->write("service", "account", "other").error()}) {
    EXPECT_EQ(error.kind, Kind::missing) << error.description;
  }
  EXPECT_FALSE(hasFiles()) << "a second secret was made";
}

TEST_F(ChosenSecretStore, IsTheFilesWhereNoneAnswersAndStaysThem) {
  withoutBus();
  ASSERT_TRUE(started()->write("service", "account", "value"));
  EXPECT_TRUE(hasFiles());
  PrivateKeyring keyring;
  EXPECT_EQ(started()->read("service", "account").value(), "value");
  EXPECT_EQ(started()->status().kind, SecretStore::Kind::files);
}

TEST_F(ChosenSecretStore, IsOpenUntilTheFirstSecretIsWritten) {
  withoutBus();
  const auto first = started();
  EXPECT_EQ(first->read("service", "account").value(), std::nullopt);
  EXPECT_TRUE(first->remove("service", "account"));
  EXPECT_EQ(folder_.names().count("secrets"), 0u);
  PrivateKeyring keyring;
  EXPECT_EQ(started()->status().kind, SecretStore::Kind::secretService);
  EXPECT_EQ(first->status().kind, SecretStore::Kind::files) << "a choice holds for the process";
}

TEST_F(ChosenSecretStore, ALockedKeyringIsAnAnswer) {
  PrivateKeyring keyring;
  ASSERT_TRUE(SecretStore::secretService(quick)->write("another", "program", "value"));
  keyring.endLocked();
  const auto secrets = started();
  const auto written = secrets->write("service", "account", "value");
  ASSERT_FALSE(written);
  EXPECT_EQ(written.error().kind, Kind::locked) << written.error().description;
  EXPECT_EQ(secrets->status().kind, SecretStore::Kind::secretService);
  EXPECT_FALSE(hasFiles());
}

TEST_F(ChosenSecretStore, StoresNothingWhenTheChoiceCannotBeKeptOrTold) {
  withoutBus();
  folder_.file("secrets/store", "nonsense");
  const auto untold = started()->write("service", "account", "value");
  ASSERT_FALSE(untold);
  EXPECT_THAT(untold.error().description, HasSubstr(folder_ / "secrets/store"));
  EXPECT_TRUE(started()->status().problem);
  EXPECT_FALSE(hasFiles());

  std::filesystem::remove_all(folder_ / "secrets");
  folder_.file("secrets", "a file where the folder should be");
  EXPECT_FALSE(started()->write("service", "account", "value"));
}

// ---- on the main queue --------------------------------------------------------------------------

TEST(SecretQueue, AnswersOnTheMainQueueInOrder) {
  const TemporaryFolder folder;
  RunLoop main;
  BackgroundPool pool;
  SecretQueue secrets(SecretStore::files(folder.path()), main, pool);
  const auto mainThread = std::this_thread::get_id();
  std::vector<std::string> answers;
  secrets.write("service", "account", "value", [&](const auto& written) {
    EXPECT_EQ(std::this_thread::get_id(), mainThread);
    answers.push_back(written ? "written" : "not written");
  });
  const auto note = [&](const auto& read) { answers.push_back(read.value().value_or("absent")); };
  secrets.read("service", "account", note);
  secrets.remove("service", "account", [](const auto&) {});
  secrets.read("service", "account", [&](const auto& read) {
    note(read);
    main.quit();
  });
  EXPECT_TRUE(answers.empty()) << "an answer came before the caller was ready";
  main.run();
  EXPECT_EQ(answers, (std::vector<std::string>{"written", "value", "absent"}));
}

TEST(SecretQueue, DropsAnswersWhenItIsGone) {
  const TemporaryFolder folder;
  ManualMainQueue main;
  const std::shared_ptr<SecretStore> store = SecretStore::files(folder.path());
  bool isAnswered = false;
  {
    BackgroundPool pool;
    SecretQueue secrets(store, main, pool);
    secrets.write("service", "account", "value", [&](const auto&) { isAnswered = true; });
  }
  main.runReady();
  EXPECT_FALSE(isAnswered);
  EXPECT_EQ(store->read("service", "account").value(), "value") << "the work itself was done";
}

}  // namespace
}  // namespace vantrell
