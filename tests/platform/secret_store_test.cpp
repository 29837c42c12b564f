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

TEST_F(SecretFiles, AFolderInTheirPlaceIsNoAbsence) {
  folder_.folder("secrets/service@account.secret");
  EXPECT_FALSE(secrets_->read("service", "account"));
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

using tests::PrivateBus;
using namespace std::chrono_literals;

std::unique_ptr<SecretStore> store(std::chrono::milliseconds limit = 10s) {
  return SecretStore::secretService(
      {.timeLimit = limit, .promptLimit = limit, .labelPrefix = "example"});
}

void expectError(const SecretError& error, Kind kind, const std::string& advice = {}) {
  EXPECT_EQ(static_cast<int>(error.kind), static_cast<int>(kind)) << error.description;
  EXPECT_THAT(error.description, HasSubstr(advice));
}
/// What each operation of the store meets.
void expectAllToFail(SecretStore& secrets, Kind kind, const std::string& advice) {
  const auto read = secrets.read("service", "account");
  const auto written = secrets.write("service", "account", "other");
  const auto removed = secrets.remove("service", "account");
  const auto problem = secrets.status().problem;
  ASSERT_FALSE(read || written || removed);
  ASSERT_TRUE(problem);
  for (const auto& error : {read.error(), written.error(), removed.error()}) {
    expectError(error, kind, advice);
  }
  expectError(*problem, kind);
}

TEST(SecretService, KeepsWhatItIsGivenAcrossARestartOfTheService) {
  PrivateKeyring keyring;
  const auto secrets = store();
  const std::string longest(SecretStore::longestValue, 'x');
  const std::string bytes("\0\xFF\x80 key \0", 9);
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"service", "account", "plain"},
      {"service", "other account", "another"},
      {"service2", "account", "third"},
      {"com.example.größe", "\u96EA / \"quoted\" 'too'", "\u00e9\u0301 \u96EA \U0001F511"},
      {"service", "bytes", bytes},
      {"service", "long", longest},
      {"service", "empty", ""},
  };
  for (const auto& [service, account, value] : cases) {
    const auto absent = secrets->read(service, account);
    ASSERT_TRUE(absent) << absent.error().description;
    EXPECT_FALSE(*absent) << service << account;
    const auto written = secrets->write(service, account, value);
    ASSERT_TRUE(written) << written.error().description;
  }
  keyring.end();
  for (const auto& [service, account, value] : cases) {
    const auto read = secrets->read(service, account);
    ASSERT_TRUE(read) << read.error().description;
    EXPECT_EQ(*read, value) << service << account;
  }
}

TEST(SecretService, ReplacesAndRemoves) {
  PrivateKeyring keyring;
  const auto secrets = store();
  ASSERT_TRUE(secrets->write("service", "account", "old"));
  ASSERT_TRUE(secrets->write("service", "account", "new"));
  EXPECT_EQ(secrets->read("service", "account").value(), "new");
  ASSERT_TRUE(secrets->remove("service", "account"));
  EXPECT_EQ(secrets->read("service", "account").value(), std::nullopt) << "an old one came back";
  EXPECT_TRUE(secrets->remove("service", "account")) << "absent is well";
  const auto status = secrets->status();
  EXPECT_EQ(status.kind, SecretStore::Kind::secretService);
  EXPECT_FALSE(status.problem) << status.problem->description;
}

TEST(SecretService, LockedIsNeitherAbsentNorAWait) {
  PrivateKeyring keyring;
  const auto secrets = store();
  ASSERT_TRUE(secrets->write("service", "account", "value"));
  keyring.endLocked();
  expectAllToFail(*secrets, Kind::locked, "Unlock it");
  const auto other = secrets->read("service", "never written");
  ASSERT_FALSE(other) << "who knows what is in a locked keyring?";
  expectError(other.error(), Kind::locked);
  const auto unlocked = secrets->unlock();
  ASSERT_FALSE(unlocked) << "there is nobody to ask";
  expectError(unlocked.error(), Kind::locked);
}

TEST(SecretService, AServiceWithoutKeyringIsMissing) {
  PrivateKeyring keyring;
  keyring.endLocked();  // before there was a first one
  const auto secrets = store();
  const auto written = secrets->write("service", "account", "value");
  ASSERT_FALSE(written);
  expectError(written.error(), Kind::missing, "Make one");
}

TEST(SecretService, IsMissingWithoutABus) {
  const TemporaryFolder folder;
  Environment environment;
  environment.set("DISPLAY", ":77");  // with which GLib would start a bus
  environment.set("XDG_RUNTIME_DIR", folder.path());
  for (const auto& address :
       {std::optional<std::string>(), std::optional<std::string>(""),
        std::optional<std::string>("autolaunch:"), std::optional("unix:path=" + folder / "absent"),
        std::optional<std::string>("nonsense")}) {
    environment.set("DBUS_SESSION_BUS_ADDRESS", address);
    expectAllToFail(*store(), Kind::missing, "Log in to the desktop");
  }
}

TEST(SecretService, IsMissingOnABusWithoutIt) {
  PrivateBus bus;
  expectAllToFail(*store(), Kind::missing, "start a keyring service");
}

TEST(SecretService, FindsTheBusInTheRuntimeFolder) {
  PrivateKeyring keyring;
  Environment environment;
  environment.set("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
  environment.set("XDG_RUNTIME_DIR", keyring.folder().path());
  EXPECT_TRUE(store()->write("service", "account", "value"));
}

TEST(SecretService, OneThatDoesNotAnswerEndsAtTheTimeLimit) {
  PrivateKeyring keyring;
  ASSERT_TRUE(store()->write("service", "account", "value"));
  ASSERT_TRUE(keyring.signal(SIGSTOP));
  expectAllToFail(*store(50ms), Kind::timedOut, "did not answer within 0.05 seconds");
  ASSERT_TRUE(keyring.signal(SIGCONT));
  EXPECT_EQ(store()->read("service", "account").value(), "value") << "what timed out came later";
}

TEST(SecretService, SaysThatTheBusDeniesIt) {
  PrivateKeyring keyring(PrivateBus::Policy::denyingTheKeyring);
  expectAllToFail(*store(), Kind::denied, "Allow it");
}

TEST(SecretService, ComesBackAfterTheServiceAndEvenTheBusDied) {
  const auto secrets = store();
  {
    PrivateKeyring keyring;
    ASSERT_TRUE(secrets->write("service", "account", "value"));
    keyring.endForGood();
    expectAllToFail(*secrets, Kind::missing, "try again");
    keyring.stop();  // a bus that ends must not end its clients
    expectAllToFail(*secrets, Kind::missing, "try again");
  }
  PrivateKeyring another;
  EXPECT_EQ(secrets->read("service", "account").value(), std::nullopt);
  EXPECT_TRUE(secrets->write("service", "account", "value"));
}

}  // namespace
}  // namespace vantrell
