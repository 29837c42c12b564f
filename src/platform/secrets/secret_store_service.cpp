// The Secret Service of the session: its D-Bus interface, spoken through GIO. Each operation has a
// connection of its own. The process's shared one would end the process with the bus.
#include <fmt/format.h>
#include <gio/gio.h>

#include "platform/secrets/secret_service_words.h"
#include "platform/secrets/secret_store.h"

namespace vantrell {
namespace {

using Kind = SecretError::Kind;
using Milliseconds = std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
template <typename T = void>
using Result = SecretStore::Result<T>;

constexpr const char* servicePath = "/org/freedesktop/secrets";
/// Means "no object" in replies.
constexpr std::string_view noObject = "/";

struct Release {
  void operator()(GError* error) const { g_error_free(error); }
  void operator()(GVariant* value) const { g_variant_unref(value); }
  void operator()(GMainContext* context) const { g_main_context_unref(context); }
  void operator()(GSource* source) const {
    g_source_destroy(source);
    g_source_unref(source);
  }
  void operator()(void* object) const { g_object_unref(object); }
};
template <typename T>
using Held = std::unique_ptr<T, Release>;

Kind kindOf(const GError* error) {
  const std::unique_ptr<char, decltype(&g_free)> name(g_dbus_error_get_remote_error(error), g_free);
  if (name && std::string_view(name.get()) == "org.freedesktop.Secret.Error.IsLocked") {
    return Kind::locked;
  }
  struct Known {
    GQuark domain;
    int code;
    Kind kind;
  };
  const Known known[] = {
      {G_IO_ERROR, G_IO_ERROR_CANCELLED, Kind::timedOut},
      {G_IO_ERROR, G_IO_ERROR_TIMED_OUT, Kind::timedOut},
      {G_IO_ERROR, G_IO_ERROR_PERMISSION_DENIED, Kind::denied},
      {G_IO_ERROR, G_IO_ERROR_NOT_FOUND, Kind::missing},
      {G_IO_ERROR, G_IO_ERROR_CONNECTION_REFUSED, Kind::missing},
      {G_IO_ERROR, G_IO_ERROR_BROKEN_PIPE, Kind::missing},
      {G_IO_ERROR, G_IO_ERROR_CLOSED, Kind::missing},
      {G_DBUS_ERROR, G_DBUS_ERROR_TIMEOUT, Kind::timedOut},
      {G_DBUS_ERROR, G_DBUS_ERROR_TIMED_OUT, Kind::timedOut},
      {G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED, Kind::denied},
      {G_DBUS_ERROR, G_DBUS_ERROR_AUTH_FAILED, Kind::denied},
      {G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY, Kind::missing},  // the service ended during the call
      {G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN, Kind::missing},
      {G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER, Kind::missing},
      {G_DBUS_ERROR, G_DBUS_ERROR_NO_SERVER, Kind::missing},
      {G_DBUS_ERROR, G_DBUS_ERROR_DISCONNECTED, Kind::missing},
  };
  for (const auto& [domain, code, kind] : known) {
    if (g_error_matches(error, domain, code)) return kind;
  }
  const bool cannotStart = error->domain == G_DBUS_ERROR &&
                           error->code >= G_DBUS_ERROR_SPAWN_EXEC_FAILED &&
                           error->code <= G_DBUS_ERROR_SPAWN_NO_MEMORY;
  return cannotStart ? Kind::missing : Kind::failed;
}

/// Pointers into a value, which must outlive them.
std::vector<const char*> objectsIn(GVariant* value, gsize index) {
  const Held<GVariant> list(g_variant_get_child_value(value, index));
  gsize count = 0;
  const gchar** found = g_variant_get_objv(list.get(), &count);
  std::vector<const char*> objects(found, found + count);
  g_free(found);
  return objects;
}

std::string objectIn(GVariant* value, gsize index) {
  const Held<GVariant> object(g_variant_get_child_value(value, index));
  return g_variant_get_string(object.get(), nullptr);
}

GVariant* bytesValue(std::string_view bytes) {
  return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1);
}

/// One operation on a connection of its own, all of it within one time limit. Used on one thread.
class Operation {
 public:
  explicit Operation(Milliseconds limit)
      : limit_(limit),
        end_(Clock::now() + limit),
        context_(g_main_context_new()),
        cancellable_(g_cancellable_new()),
        timer_(g_timeout_source_new(static_cast<guint>(limit.count()))) {
    g_main_context_push_thread_default(context_.get());
    g_source_set_callback(
        timer_.get(),
        [](gpointer cancellable) -> gboolean {
          g_cancellable_cancel(static_cast<GCancellable*>(cancellable));
          return G_SOURCE_REMOVE;
        },
        cancellable_.get(), nullptr);
    g_source_attach(timer_.get(), context_.get());
  }
  ~Operation() { g_main_context_pop_thread_default(context_.get()); }
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  Result<> connect() {
    const auto address = sessionBusAddress();
    if (!address) return failure(Kind::missing, "there is no session bus");
    GAsyncResult* answer = nullptr;
    g_dbus_connection_new_for_address(
        address->c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, cancellable_.get(),
        [](GObject*, GAsyncResult* result, gpointer place) {
          *static_cast<GAsyncResult**>(place) = static_cast<GAsyncResult*>(g_object_ref(result));
        },
        &answer);
    // Comes in any case: when time is up, by the cancellation.
    while (!answer) g_main_context_iteration(context_.get(), TRUE);
    const Held<GAsyncResult> held(answer);
    GError* error = nullptr;
    connection_.reset(g_dbus_connection_new_for_address_finish(answer, &error));
    if (!connection_) {
      // An address that leads nowhere is reported in many ways, and all of them mean no bus.
      auto failed = failure(error);
      if (failed.error().kind != Kind::failed) return failed;
      return failure(Kind::missing, "the session bus cannot be reached");
    }
    const auto opened = call(servicePath, "Service", "OpenSession",
                             g_variant_new("(sv)", "plain", g_variant_new_string("")), "(vo)");
    if (!opened) return std::unexpected(opened.error());
    session_ = objectIn(opened->get(), 1);
    return {};
  }

  /// The paths of the items with the two names, in all keyrings.
  Result<std::vector<std::string>> search(const std::string& service, const std::string& account) {
    const auto found = call(servicePath, "Service", "SearchItems",
                            g_variant_new("(@a{ss})", attributes(service, account)), "(aoao)");
    if (!found) return std::unexpected(found.error());
    const auto items = objectsIn(found->get(), 0);
    // Some services do not show what is in a locked keyring.
    const bool isAnyLocked = !objectsIn(found->get(), 1).empty();
    if (isAnyLocked) return failure(Kind::locked);
    if (items.empty()) {
      const auto keyring = defaultKeyring();
      if (!keyring && keyring.error().kind != Kind::missing) {
        return std::unexpected(keyring.error());
      }
      if (keyring && keyring->isLocked) return failure(Kind::locked);
    }
    return std::vector<std::string>(items.begin(), items.end());
  }

  Result<std::string> read(const std::string& item) {
    const auto answer =
        call(item, "Item", "GetSecret", g_variant_new("(o)", session_.c_str()), "((oayays))");
    if (!answer) return std::unexpected(answer.error());
    const Held<GVariant> secret(g_variant_get_child_value(answer->get(), 0));
    const Held<GVariant> value(g_variant_get_child_value(secret.get(), 2));
    gsize size = 0;
    const void* bytes = g_variant_get_fixed_array(value.get(), &size, 1);
    return std::string(static_cast<const char*>(bytes), size);
  }

  Result<> replace(const std::string& item, const std::string& value) {
    const auto set =
        call(item, "Item", "SetSecret", g_variant_new("(@(oayays))", secret(value)), "()");
    if (!set) return std::unexpected(set.error());
    return {};
  }

  Result<> create(const std::string& service, const std::string& account, const std::string& label,
                  const std::string& value) {
    const auto keyring = defaultKeyring();
    if (!keyring) return std::unexpected(keyring.error());
    GVariantBuilder properties;
    g_variant_builder_init(&properties, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add(&properties, "{sv}", "org.freedesktop.Secret.Item.Label",
                          g_variant_new_string(label.c_str()));
    g_variant_builder_add(&properties, "{sv}", "org.freedesktop.Secret.Item.Attributes",
                          attributes(service, account));
    const auto made =
        call(keyring->path, "Collection", "CreateItem",
             g_variant_new("(a{sv}@(oayays)b)", &properties, secret(value), TRUE), "(oo)");
    if (!made) return std::unexpected(made.error());
    return withoutPrompt(objectIn(made->get(), 1));
  }

  Result<> remove(const std::string& item) {
    const auto removed = call(item, "Item", "Delete", nullptr, "(o)");
    if (!removed) return std::unexpected(removed.error());
    return withoutPrompt(objectIn(removed->get(), 0));
  }

  struct Keyring {
    std::string path;
    bool isLocked = false;
  };
  Result<Keyring> defaultKeyring() {
    const auto alias =
        call(servicePath, "Service", "ReadAlias", g_variant_new("(s)", "default"), "(o)");
    if (!alias) return std::unexpected(alias.error());
    Keyring keyring{.path = objectIn(alias->get(), 0)};
    // Storing would ask the user for the password of a new one.
    if (keyring.path == noObject) {
      return std::unexpected(SecretError{
          Kind::missing,
          "The keyring service has no default keyring yet. Make one, for example in the desktop's "
          "program for passwords and keys, and try again."});
    }
    const auto locked =
        call(keyring.path, "org.freedesktop.DBus.Properties", "Get",
             g_variant_new("(ss)", "org.freedesktop.Secret.Collection", "Locked"), "(v)");
    if (!locked) return std::unexpected(locked.error());
    GVariant* value = nullptr;
    g_variant_get(locked->get(), "(v)", &value);
    const Held<GVariant> held(value);
    keyring.isLocked =
        g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN) && g_variant_get_boolean(value);
    return keyring;
  }

  /// Of the default keyring: it exists and is not locked.
  Result<> check() {
    const auto keyring = defaultKeyring();
    if (!keyring) return std::unexpected(keyring.error());
    if (keyring->isLocked) return failure(Kind::locked);
    return {};
  }

  Result<> unlock() {
    const auto keyring = defaultKeyring();
    if (!keyring) return std::unexpected(keyring.error());
    if (!keyring->isLocked) return {};
    const char* const wanted[] = {keyring->path.c_str()};
    const auto answer = call(servicePath, "Service", "Unlock",
                             g_variant_new("(@ao)", g_variant_new_objv(wanted, 1)), "(aoo)");
    if (!answer) return std::unexpected(answer.error());
    if (!objectsIn(answer->get(), 0).empty()) return {};
    return prompt(objectIn(answer->get(), 1));
  }

 private:
  std::unexpected<SecretError> failure(Kind kind, std::string_view detail = {}) const {
    return std::unexpected(SecretError{kind, keyringSentence(kind, limit_, detail)});
  }
  /// Takes over the error.
  std::unexpected<SecretError> failure(GError* error) const {
    if (!error) return failure(Kind::failed, "it gave no reason");
    const Held<GError> held(error);
    const Kind kind = kindOf(error);
    g_dbus_error_strip_remote_error(error);
    return failure(kind, error->message);
  }
  /// No operation but unlock() asks the user for anything.
  Result<> withoutPrompt(std::string_view promptPath) const {
    if (promptPath != noObject) return failure(Kind::locked);
    return {};
  }

  /// Takes over the parameters. An interface without a dot is one of the Secret Service.
  Result<Held<GVariant>> call(const std::string& path, const std::string& interface,
                              const char* method, GVariant* parameters, const char* reply) {
    const std::string whole =
        interface.contains('.') ? interface : "org.freedesktop.Secret." + interface;
    const auto left = std::chrono::ceil<Milliseconds>(end_ - Clock::now()).count();
    GError* error = nullptr;
    Held<GVariant> answer(g_dbus_connection_call_sync(
        connection_.get(), "org.freedesktop.secrets", path.c_str(), whole.c_str(), method,
        parameters, G_VARIANT_TYPE(reply), G_DBUS_CALL_FLAGS_NONE,
        static_cast<int>(std::max<std::int64_t>(left, 1)), nullptr, &error));
    if (!answer) return failure(error);
    return answer;
  }

  /// Shows the service's own question and waits for its end.
  Result<> prompt(const std::string& path) {
    if (path == noObject) return failure(Kind::locked);
    enum class End { none, dismissed, completed } end = End::none;
    const guint subscription = g_dbus_connection_signal_subscribe(
        connection_.get(), nullptr, "org.freedesktop.Secret.Prompt", "Completed", path.c_str(),
        nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        [](GDBusConnection*, const char*, const char*, const char*, const char*,
           GVariant* parameters, gpointer place) {
          gboolean isDismissed = TRUE;
          g_variant_get(parameters, "(bv)", &isDismissed, nullptr);
          *static_cast<End*>(place) = isDismissed ? End::dismissed : End::completed;
        },
        &end, nullptr);
    const auto shown = call(path, "Prompt", "Prompt", g_variant_new("(s)", ""), "()");
    while (shown && end == End::none && !g_cancellable_is_cancelled(cancellable_.get())) {
      g_main_context_iteration(context_.get(), TRUE);
    }
    g_dbus_connection_signal_unsubscribe(connection_.get(), subscription);
    if (end == End::completed) return {};
    // Dismissed, or there was no way to ask.
    return failure(shown && end == End::none ? Kind::timedOut : Kind::locked);
  }

  static GVariant* attributes(const std::string& service, const std::string& account) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a{ss}"));
    g_variant_builder_add(&builder, "{ss}", "service", service.c_str());
    g_variant_builder_add(&builder, "{ss}", "account", account.c_str());
    return g_variant_builder_end(&builder);
  }

  GVariant* secret(const std::string& value) const {
    return g_variant_new("(o@ay@ays)", session_.c_str(), bytesValue({}), bytesValue(value),
                         "application/octet-stream");
  }

  const Milliseconds limit_;
  const Clock::time_point end_;
  Held<GMainContext> context_;
  Held<GCancellable> cancellable_;
  Held<GSource> timer_;
  Held<GDBusConnection> connection_;
  std::string session_;
};

class ServiceSecrets final : public SecretStore {
  using Items = std::vector<std::string>;

  template <typename Work>
  static auto within(Milliseconds limit, Work work) -> std::invoke_result_t<Work, Operation&> {
    Operation operation(limit);
    if (auto connected = operation.connect(); !connected) {
      return std::unexpected(std::move(connected.error()));
    }
    return work(operation);
  }

  template <typename Work>
  auto onItems(const std::string& service, const std::string& account, Work work) const {
    using Answer = std::invoke_result_t<Work, Operation&, const Items&>;
    return within(options_.timeLimit, [&](Operation& now) -> Answer {
      auto items = now.search(service, account);
      if (!items) return std::unexpected(std::move(items.error()));
      return work(now, *items);
    });
  }

  static Result<> removeAll(Operation& now, const Items& items) {
    for (const std::string& item : items) {
      if (auto removed = now.remove(item); !removed) return removed;
    }
    return {};
  }

 public:
  explicit ServiceSecrets(SecretServiceOptions options) : options_(std::move(options)) {}

  Status status() override {
    Status status{.kind = SecretStore::Kind::secretService, .place = "the keyring", .problem = {}};
    const auto good = within(options_.timeLimit, [](Operation& now) { return now.check(); });
    if (!good) status.problem = good.error();
    return status;
  }

  Result<> unlock() override {
    return within(options_.promptLimit, [](Operation& now) { return now.unlock(); });
  }

 protected:
  Result<std::optional<std::string>> readSecret(const std::string& service,
                                                const std::string& account) override {
    return onItems(service, account,
                   [](Operation& now, const Items& items) -> Result<std::optional<std::string>> {
                     if (items.empty()) return std::nullopt;
                     return now.read(items.front());
                   });
  }

  Result<> writeSecret(const std::string& service, const std::string& account,
                       const std::string& value) override {
    return onItems(service, account, [&](Operation& now, Items items) -> Result<> {
      if (items.empty()) {
        const std::string prefix = options_.labelPrefix.empty() ? "" : options_.labelPrefix + ": ";
        return now.create(service, account, fmt::format("{}{} ({})", prefix, service, account),
                          value);
      }
      if (auto replaced = now.replace(items.front(), value); !replaced) return replaced;
      items.erase(items.begin());
      return removeAll(now, items);
    });
  }

  Result<> removeSecret(const std::string& service, const std::string& account) override {
    return onItems(service, account, removeAll);
  }

 private:
  SecretServiceOptions options_;
};

}  // namespace

std::unique_ptr<SecretStore> SecretStore::secretService(SecretServiceOptions options) {
  return std::make_unique<ServiceSecrets>(std::move(options));
}

}  // namespace vantrell
