// Small secrets (keys, links with keys in them), each named by a service and an account, as other
// systems keep them in a keychain. Two implementations: the Secret Service of the session (GNOME
// Keyring, KWallet, KeePassXC) and owner-only files. Every call may block up to its time
// limit, so none belongs on the main queue: code there uses SecretQueue. Any other thread, several
// at a time.
#pragma once

#include <chrono>
#include <expected>
#include <memory>
#include <optional>
#include <string>

namespace vantrell {

struct SecretError {
  enum class Kind {
    missing,   // no session bus, no service, or no keyring in it
    locked,    // and not unlocked
    timedOut,  // the service is there and does not answer
    denied,    // the service, the bus or the file system refuses
    failed     // anything else: disk full, a name that cannot be stored
  };
  Kind kind = Kind::failed;
  std::string description;  // what is wrong and what to do, for people
};

struct SecretServiceOptions {
  /// Of one operation, however many calls it takes. Below the 25 seconds after which D-Bus gives
  /// up.
  std::chrono::milliseconds timeLimit{10'000};
  /// Of unlock(), in which a person types a password.
  std::chrono::milliseconds promptLimit{120'000};
  /// What a keyring viewer shows in front of the names: "vantrell: SERVICE (ACCOUNT)".
  std::string labelPrefix;
};

class SecretStore {
 public:
  enum class Kind { secretService, files };
  template <typename T = void>
  using Result = std::expected<T, SecretError>;

  /// Limits of every implementation, so that what one can keep all can: bytes of service and
  /// account together, and of a value. Service and account are UTF-8 without NUL; a value is any
  /// bytes.
  static constexpr std::size_t longestName = 80;
  static constexpr std::size_t longestValue = std::size_t{64} * 1024;

  virtual ~SecretStore() = default;

  /// nullopt when there is no such secret. A locked store returns an error, never nullopt: a caller
  /// would otherwise make a second secret.
  Result<std::optional<std::string>> read(const std::string& service, const std::string& account);
  /// Makes or replaces; durable when it returns.
  Result<> write(const std::string& service, const std::string& account, const std::string& value);
  /// Also well when there was none.
  Result<> remove(const std::string& service, const std::string& account);

  struct Status {
    Kind kind = Kind::files;
    std::string place;                   // for people: "the keyring", a folder
    std::optional<SecretError> problem;  // what an operation would meet now
  };
  virtual Status status() = 0;
  /// Lets the session ask the user for the keyring's password. Nothing else ever does. `locked`
  /// when the user cannot be asked or declines. Succeeds at once when nothing is locked.
  virtual Result<> unlock() { return {}; }

  /// One file (0600) a secret in the folder, which is made (0700) when first written to.
  static std::unique_ptr<SecretStore> files(std::string folder);
  /// Connects for each operation: they are rare, and a service that was restarted costs nothing.
  static std::unique_ptr<SecretStore> secretService(SecretServiceOptions options);
  /// Chooses at the first operation, for good: the Secret Service where one answers (locked, slow
  /// or refusing is an answer), else the files. The first write remembers the choice,
  /// in the file "store" of the folder, before anything is stored; from then on it holds at every
  /// start. So a remembered service that is out of reach gives errors and no second secret in the
  /// files; and files that were begun without a keyring are used on when there is one.
  static std::unique_ptr<SecretStore> chosen(std::string folder, SecretServiceOptions options);

 protected:
  // Of checked names and values.
  virtual Result<std::optional<std::string>> readSecret(const std::string& service,
                                                        const std::string& account) = 0;
  virtual Result<> writeSecret(const std::string& service, const std::string& account,
                               const std::string& value) = 0;
  virtual Result<> removeSecret(const std::string& service, const std::string& account) = 0;
};

}  // namespace vantrell
