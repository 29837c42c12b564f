#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/secrets/secret_store.h"
#include "support/private_keyring.h"

namespace vantrell {
namespace {

using testing::HasSubstr;
using tests::Environment;
using tests::PrivateBus;
using tests::PrivateKeyring;
using tests::TemporaryFolder;
using Kind = SecretError::Kind;
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
