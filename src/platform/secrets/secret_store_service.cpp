// The Secret Service of the session, through libsecret. Its calls that wait for an answer run a
// loop of their own, so they need no loop of ours; a second thread cancels them when time is up.
#include <condition_variable>
#include <fmt/format.h>
#include <libsecret/secret.h>
#include <mutex>
#include <thread>

#include "platform/files/dynamic_library.h"
#include "platform/secrets/secret_service_words.h"
#include "platform/secrets/secret_store.h"

#ifdef __SANITIZE_THREAD__
// GLib is not built for the thread sanitizer, which therefore sees the memory that its threads hand
// over, and not the futexes that they do it with. What our own code does is still looked at.
extern "C" const char* __tsan_default_suppressions() {
  return "called_from_lib:libglib-2.0.so.0\n"
         "called_from_lib:libgio-2.0.so.0\n"
         "called_from_lib:libgobject-2.0.so.0\n"
         "called_from_lib:libsecret-1.so.0\n";
}
#endif

namespace vantrell {
namespace {

using Kind = SecretError::Kind;

/// Everything that is called of libsecret and what it stands on.
struct Library : DynamicLibrary {
  Library() : DynamicLibrary("libsecret-1.so.0") {}
  // clang-format off
  VANTRELL_FUNCTION(g_cancellable_cancel) VANTRELL_FUNCTION(g_cancellable_new)
  VANTRELL_FUNCTION(g_dbus_connection_new_for_address_sync) VANTRELL_FUNCTION(g_dbus_error_quark)
  VANTRELL_FUNCTION(g_error_free) VANTRELL_FUNCTION(g_hash_table_insert)
  VANTRELL_FUNCTION(g_hash_table_new) VANTRELL_FUNCTION(g_hash_table_unref)
  VANTRELL_FUNCTION(g_initable_new) VANTRELL_FUNCTION(g_io_error_quark)
  VANTRELL_FUNCTION(g_list_append) VANTRELL_FUNCTION(g_list_free) VANTRELL_FUNCTION(g_object_set)
  VANTRELL_FUNCTION(g_object_unref) VANTRELL_FUNCTION(g_str_equal) VANTRELL_FUNCTION(g_str_hash)
  VANTRELL_FUNCTION(g_type_class_peek) VANTRELL_FUNCTION(g_type_register_static_simple)
  VANTRELL_FUNCTION(secret_collection_for_alias_sync)
  VANTRELL_FUNCTION(secret_collection_get_locked) VANTRELL_FUNCTION(secret_error_get_quark)
  VANTRELL_FUNCTION(secret_item_delete_sync) VANTRELL_FUNCTION(secret_item_get_locked)
  VANTRELL_FUNCTION(secret_item_get_secret) VANTRELL_FUNCTION(secret_item_load_secret_sync)
  VANTRELL_FUNCTION(secret_item_set_secret_sync) VANTRELL_FUNCTION(secret_service_get_type)
  VANTRELL_FUNCTION(secret_service_search_sync) VANTRELL_FUNCTION(secret_service_store_sync)
  VANTRELL_FUNCTION(secret_service_unlock_sync) VANTRELL_FUNCTION(secret_value_get)
  VANTRELL_FUNCTION(secret_value_new) VANTRELL_FUNCTION(secret_value_unref)
  // clang-format on
};

const Library& library() {
  static const Library loaded;
  return loaded;
}

/// libsecret's service object, but on the connection it is given: its own constructor always asks
/// for the process's shared connection to the session bus, which ends the process when the bus goes
/// away and cannot be had anew.
GType serviceType() {
  static constexpr auto construct = [](GType type, guint count, GObjectConstructParam* properties) {
    const Library& lib = library();
    auto* parent = static_cast<GObjectClass*>(lib.g_type_class_peek(lib.secret_service_get_type()));
    GObject* object = parent->constructor(type, count, properties);
    lib.g_object_set(object, "g-bus-type", G_BUS_TYPE_NONE, nullptr);
    return object;
  };
  static const GType type = library().g_type_register_static_simple(
      library().secret_service_get_type(), "VantrellSecretService", sizeof(SecretServiceClass),
      [](void* all, void*) { static_cast<GObjectClass*>(all)->constructor = construct; },
      sizeof(SecretService), nullptr, GTypeFlags{});
  return type;
}

struct Release {
  void operator()(void* object) const { library().g_object_unref(object); }
  void operator()(GError* error) const { library().g_error_free(error); }
  void operator()(GHashTable* table) const { library().g_hash_table_unref(table); }
  void operator()(SecretValue* value) const { library().secret_value_unref(value); }
};
template <typename T>
using Held = std::unique_ptr<T, Release>;

/// Where GLib is to put an error.
class ErrorPlace {
 public:
  ErrorPlace() = default;
  ErrorPlace(const ErrorPlace&) = delete;
  ErrorPlace& operator=(const ErrorPlace&) = delete;
  ~ErrorPlace() {
    if (error_) library().g_error_free(error_);
  }
  GError** operator&() { return &error_; }
  const GError* get() const { return error_; }

 private:
  GError* error_ = nullptr;
};

/// Cancels the calls of one operation when its time is up.
class Deadline {
 public:
  explicit Deadline(std::chrono::milliseconds limit)
      : limit_(limit), cancellable_(library().g_cancellable_new()), watch_([this] { wait(); }) {}
  ~Deadline() {
    {
      const std::lock_guard guard(mutex_);
      isOver_ = true;
    }
    over_.notify_one();
    watch_.join();
  }
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;

  GCancellable* cancellable() const { return cancellable_.get(); }
  std::chrono::milliseconds limit() const { return limit_; }

 private:
  void wait() {
    std::unique_lock guard(mutex_);
    if (!over_.wait_for(guard, limit_, [this] { return isOver_; })) {
      library().g_cancellable_cancel(cancellable_.get());
    }
  }

  std::chrono::milliseconds limit_;
  Held<GCancellable> cancellable_;
  std::mutex mutex_;
  std::condition_variable over_;
  bool isOver_ = false;
  std::thread watch_;  // last: it uses the rest
};

// ---- what went wrong ----------------------------------------------------------------------------

std::unexpected<SecretError> failure(Kind kind, std::chrono::milliseconds limit,
                                     std::string_view detail = {}) {
  return std::unexpected(SecretError{kind, keyringSentence(kind, limit, detail)});
}

Kind kindOf(const GError* error) {
  const Library& lib = library();
  if (error->domain == lib.g_io_error_quark()) {
    switch (error->code) {
      case G_IO_ERROR_CANCELLED:
      case G_IO_ERROR_TIMED_OUT: return Kind::timedOut;
      case G_IO_ERROR_PERMISSION_DENIED: return Kind::denied;
      case G_IO_ERROR_NOT_FOUND:
      case G_IO_ERROR_CONNECTION_REFUSED:
      case G_IO_ERROR_BROKEN_PIPE:
      case G_IO_ERROR_CLOSED: return Kind::missing;
      default: return Kind::failed;
    }
  }
  if (error->domain == lib.g_dbus_error_quark()) {
    switch (error->code) {
      case G_DBUS_ERROR_TIMEOUT:
      case G_DBUS_ERROR_TIMED_OUT: return Kind::timedOut;
      case G_DBUS_ERROR_ACCESS_DENIED:
      case G_DBUS_ERROR_AUTH_FAILED: return Kind::denied;
      // NO_REPLY: the service ended while it was asked.
      case G_DBUS_ERROR_NO_REPLY:
      case G_DBUS_ERROR_SERVICE_UNKNOWN:
      case G_DBUS_ERROR_NAME_HAS_NO_OWNER:
      case G_DBUS_ERROR_NO_SERVER:
      case G_DBUS_ERROR_DISCONNECTED: return Kind::missing;
      default:
        return error->code >= G_DBUS_ERROR_SPAWN_EXEC_FAILED &&
                       error->code <= G_DBUS_ERROR_SPAWN_NO_MEMORY
                   ? Kind::missing
                   : Kind::failed;
    }
  }
  if (error->domain == lib.secret_error_get_quark() && error->code == SECRET_ERROR_IS_LOCKED) {
    return Kind::locked;
  }
  return Kind::failed;
}

std::unexpected<SecretError> failure(const ErrorPlace& error, const Deadline& deadline) {
  const GError* found = error.get();
  if (!found) return failure(Kind::failed, deadline.limit(), "it gave no reason");
  return failure(kindOf(found), deadline.limit(), found->message);
}

// ---- one operation ------------------------------------------------------------------------------

/// The items with the two names, in all keyrings.
class Items {
 public:
  explicit Items(GList* list) : list_(list) {}
  Items(Items&& other) noexcept : list_(std::exchange(other.list_, nullptr)) {}
  Items& operator=(Items&&) = delete;
  ~Items() {
    for (GList* each = list_; each; each = each->next) library().g_object_unref(each->data);
    library().g_list_free(list_);
  }
  bool isEmpty() const { return !list_; }
  SecretItem* first() const { return item(list_); }
  bool isAnyLocked() const {
    for (GList* each = list_; each; each = each->next) {
      if (library().secret_item_get_locked(item(each))) return true;
    }
    return false;
  }
  /// Removes all, or all but the first. False with the error in its place.
  bool removeFrom(bool keepsFirst, GCancellable* cancellable, GError** error) const {
    for (GList* each = keepsFirst && list_ ? list_->next : list_; each; each = each->next) {
      if (!library().secret_item_delete_sync(item(each), cancellable, error)) return false;
    }
    return true;
  }

 private:
  static SecretItem* item(GList* link) { return static_cast<SecretItem*>(link->data); }
  GList* list_;
};

/// A connection for one operation; all of it within one time limit. The connection is not the
/// process's shared one, which ends the process when the bus goes away.
class Operation {
 public:
  template <typename T = void>
  using Result = SecretStore::Result<T>;

  explicit Operation(std::chrono::milliseconds limit) : deadline_(limit) {}

  Result<> connect(const std::string& address) {
    const Library& lib = library();
    ErrorPlace error;
    connection_.reset(lib.g_dbus_connection_new_for_address_sync(
        address.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, cancellable(), &error));
    if (!connection_) {
      // An address that leads nowhere is reported in many ways, and all of them mean no bus.
      const Kind kind = error.get() ? kindOf(error.get()) : Kind::missing;
      return failure(kind == Kind::failed ? Kind::missing : kind, deadline_.limit(),
                     error.get() ? error.get()->message : "the bus refused");
    }
    service_.reset(static_cast<SecretService*>(
        lib.g_initable_new(serviceType(), cancellable(), &error, "g-connection", connection_.get(),
                           "flags", SECRET_SERVICE_OPEN_SESSION, nullptr)));
    if (!service_) return failure(error, deadline_);
    return {};
  }

  Result<Items> search(const std::string& service, const std::string& account) {
    const Held<GHashTable> names = attributes(service, account);
    ErrorPlace error;
    Items items(library().secret_service_search_sync(service_.get(), nullptr, names.get(),
                                                     SECRET_SEARCH_ALL, cancellable(), &error));
    if (error.get()) return failure(error, deadline_);
    if (items.isAnyLocked()) return failure(Kind::locked, deadline_.limit());
    // Some services do not show what is in a locked keyring.
    if (items.isEmpty()) {
      const auto keyring = defaultKeyring();
      if (!keyring) return std::unexpected(keyring.error());
      if (*keyring && library().secret_collection_get_locked(keyring->get())) {
        return failure(Kind::locked, deadline_.limit());
      }
    }
    return items;
  }

  /// Null when the service has none yet.
  Result<Held<SecretCollection>> defaultKeyring() {
    ErrorPlace error;
    Held<SecretCollection> keyring(library().secret_collection_for_alias_sync(
        service_.get(), "default", SECRET_COLLECTION_NONE, cancellable(), &error));
    if (error.get()) return failure(error, deadline_);
    return keyring;
  }

  Result<std::optional<std::string>> read(const Items& items) {
    const Library& lib = library();
    if (items.isEmpty()) return std::nullopt;
    ErrorPlace error;
    if (!lib.secret_item_load_secret_sync(items.first(), cancellable(), &error)) {
      return failure(error, deadline_);
    }
    const Held<SecretValue> value(lib.secret_item_get_secret(items.first()));
    if (!value) return failure(Kind::locked, deadline_.limit());
    gsize size = 0;
    const char* bytes = lib.secret_value_get(value.get(), &size);
    return std::string(bytes, size);
  }

  Result<> write(const Items& items, const std::string& service, const std::string& account,
                 const std::string& label, const std::string& bytes) {
    const Library& lib = library();
    const Held<SecretValue> value(lib.secret_value_new(
        bytes.data(), static_cast<gssize>(bytes.size()), "application/octet-stream"));
    ErrorPlace error;
    if (!items.isEmpty()) {
      if (!lib.secret_item_set_secret_sync(items.first(), value.get(), cancellable(), &error) ||
          !items.removeFrom(true, cancellable(), &error)) {
        return failure(error, deadline_);
      }
      return {};
    }
    const auto keyring = defaultKeyring();
    if (!keyring) return std::unexpected(keyring.error());
    // Storing would ask the user for the password of a new one.
    if (!*keyring) return noKeyring();
    const Held<GHashTable> names = attributes(service, account);
    if (!lib.secret_service_store_sync(service_.get(), nullptr, names.get(), "default",
                                       label.c_str(), value.get(), cancellable(), &error)) {
      return failure(error, deadline_);
    }
    return {};
  }

  Result<> remove(const Items& items) {
    ErrorPlace error;
    if (!items.removeFrom(false, cancellable(), &error)) return failure(error, deadline_);
    return {};
  }

  /// Of the default keyring: there is one, and it is not locked.
  Result<> check() {
    const auto keyring = defaultKeyring();
    if (!keyring) return std::unexpected(keyring.error());
    if (!*keyring) return noKeyring();
    if (library().secret_collection_get_locked(keyring->get())) {
      return failure(Kind::locked, deadline_.limit());
    }
    return {};
  }

  Result<> unlock() {
    const Library& lib = library();
    const auto keyring = defaultKeyring();
    if (!keyring) return std::unexpected(keyring.error());
    if (!*keyring) return noKeyring();
    if (!lib.secret_collection_get_locked(keyring->get())) return {};
    GList* wanted = lib.g_list_append(nullptr, keyring->get());
    ErrorPlace error;
    const int count =
        lib.secret_service_unlock_sync(service_.get(), wanted, cancellable(), nullptr, &error);
    lib.g_list_free(wanted);
    if (error.get() && kindOf(error.get()) == Kind::timedOut) return failure(error, deadline_);
    // Declined, or nobody could be asked.
    if (count < 1) return failure(Kind::locked, deadline_.limit());
    return {};
  }

 private:
  GCancellable* cancellable() const { return deadline_.cancellable(); }

  std::unexpected<SecretError> noKeyring() const {
    return std::unexpected(SecretError{
        Kind::missing,
        "The keyring service has no default keyring yet. Make one, for example in the desktop's "
        "program for passwords and keys, and try again."});
  }

  /// Keeps pointers into the two texts.
  static Held<GHashTable> attributes(const std::string& service, const std::string& account) {
    const Library& lib = library();
    Held<GHashTable> table(lib.g_hash_table_new(lib.g_str_hash, lib.g_str_equal));
    lib.g_hash_table_insert(table.get(), const_cast<char*>("service"),
                            const_cast<char*>(service.c_str()));
    lib.g_hash_table_insert(table.get(), const_cast<char*>("account"),
                            const_cast<char*>(account.c_str()));
    return table;
  }

  Deadline deadline_;
  Held<GDBusConnection> connection_;
  Held<SecretService> service_;
};

class ServiceSecrets final : public SecretStore {
 public:
  explicit ServiceSecrets(SecretServiceOptions options) : options_(std::move(options)) {}

  Status status() override {
    Status status{.kind = SecretStore::Kind::secretService, .place = "the keyring", .problem = {}};
    auto operation = begin(options_.timeLimit);
    if (!operation) {
      status.problem = std::move(operation.error());
    } else if (auto good = (*operation)->check(); !good) {
      status.problem = std::move(good.error());
    }
    return status;
  }

  Result<> unlock() override {
    auto operation = begin(options_.promptLimit);
    if (!operation) return std::unexpected(std::move(operation.error()));
    return (*operation)->unlock();
  }

 protected:
  Result<std::optional<std::string>> readSecret(const std::string& service,
                                                const std::string& account) override {
    auto operation = begin(options_.timeLimit);
    if (!operation) return std::unexpected(std::move(operation.error()));
    const auto items = (*operation)->search(service, account);
    if (!items) return std::unexpected(items.error());
    return (*operation)->read(*items);
  }

  Result<> writeSecret(const std::string& service, const std::string& account,
                       const std::string& value) override {
    auto operation = begin(options_.timeLimit);
    if (!operation) return std::unexpected(std::move(operation.error()));
    const auto items = (*operation)->search(service, account);
    if (!items) return std::unexpected(items.error());
    const std::string label =
        fmt::format("{}{}{} ({})", options_.labelPrefix, options_.labelPrefix.empty() ? "" : ": ",
                    service, account);
    return (*operation)->write(*items, service, account, label, value);
  }

  Result<> removeSecret(const std::string& service, const std::string& account) override {
    auto operation = begin(options_.timeLimit);
    if (!operation) return std::unexpected(std::move(operation.error()));
    const auto items = (*operation)->search(service, account);
    if (!items) return std::unexpected(items.error());
    return (*operation)->remove(*items);
  }

 private:
  static Result<std::unique_ptr<Operation>> begin(std::chrono::milliseconds limit) {
    const auto address = sessionBusAddress();
    if (!address) return failure(SecretError::Kind::missing, limit, "there is no session bus");
    if (!library().isComplete()) {
      return failure(SecretError::Kind::missing, limit, "the library libsecret is not installed");
    }
    auto operation = std::make_unique<Operation>(limit);
    if (auto connected = operation->connect(*address); !connected) {
      return std::unexpected(std::move(connected.error()));
    }
    return operation;
  }

  SecretServiceOptions options_;
};

}  // namespace

std::unique_ptr<SecretStore> SecretStore::secretService(SecretServiceOptions options) {
  return std::make_unique<ServiceSecrets>(std::move(options));
}

}  // namespace vantrell
