#include "platform/user_defaults.h"

#include <cerrno>
#include <cmath>
#include <fcntl.h>
#include <fmt/format.h>
#include <map>
#include <sqlite3.h>
#include <system_error>
#include <unistd.h>
#include <variant>

namespace vantrell {
namespace {

/// How long a write waits for another process that holds the file. It blocks the main queue.
constexpr int busyTimeoutMilliseconds = 1000;
/// Kept in the file's user_version.
constexpr int formatVersion = 1;

struct Data {
  std::string bytes;
};
using Value = std::variant<std::string, bool, double, Data>;

/// Keeps all values in memory, where every read is answered; store() and erase() make them last.
class Defaults : public UserDefaults {
 public:
  std::optional<std::string> text(std::string_view key) const override {
    return get<std::string>(key);
  }
  std::optional<bool> boolean(std::string_view key) const override { return get<bool>(key); }
  std::optional<double> number(std::string_view key) const override { return get<double>(key); }
  std::optional<std::string> data(std::string_view key) const override {
    const auto data = get<Data>(key);
    return data ? std::optional(data->bytes) : std::nullopt;
  }

  bool setText(std::string_view key, std::string_view value) override {
    return set(key, std::string(value));
  }
  bool setBoolean(std::string_view key, bool value) override { return set(key, value); }
  bool setNumber(std::string_view key, double value) override {
    if (std::isnan(value)) {
      lastError_ = fmt::format("The setting {} cannot be stored: it is not a number.", key);
      return false;
    }
    return set(key, value);
  }
  bool setData(std::string_view key, std::string_view bytes) override {
    return set(key, Data{std::string(bytes)});
  }
  bool remove(std::string_view key) override {
    if (!erase(key)) return false;
    if (const auto place = values_.find(key); place != values_.end()) values_.erase(place);
    return true;
  }
  const std::string& lastError() const override { return lastError_; }

 protected:
  // Each makes the change durable, or leaves all as it was and fills lastError_.
  virtual bool store(std::string_view, const Value&) { return true; }
  virtual bool erase(std::string_view) { return true; }

  std::map<std::string, Value, std::less<>> values_;
  std::string lastError_;

 private:
  template <typename T>
  std::optional<T> get(std::string_view key) const {
    const auto place = values_.find(key);
    const T* value = place == values_.end() ? nullptr : std::get_if<T>(&place->second);
    return value ? std::optional(*value) : std::nullopt;
  }
  bool set(std::string_view key, Value value) {
    if (!store(key, value)) return false;
    values_.insert_or_assign(std::string(key), std::move(value));
    return true;
  }
};

struct CloseDatabase {
  void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
};
struct CloseStatement {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Database = std::unique_ptr<sqlite3, CloseDatabase>;
using Statement = std::unique_ptr<sqlite3_stmt, CloseStatement>;

Statement prepare(sqlite3* database, const char* sql) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(database, sql, -1, &statement, nullptr);
  return Statement(statement);
}

/// A bound view must outlive the step. The literal gives an empty view a place, which tells SQLite
/// an empty value from an absent one.
const char* placeOf(std::string_view bytes) {
  return bytes.empty() ? "" : bytes.data();
}

void bindText(sqlite3_stmt* statement, int index, std::string_view text) {
  sqlite3_bind_text64(statement, index, placeOf(text), text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

std::string bytesOf(sqlite3_stmt* statement, int column) {
  const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement, column));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
  return bytes ? std::string(bytes, size) : std::string();
}

class FileDefaults final : public Defaults {
 public:
  /// Empty, or one line for people.
  std::string open(const std::string& path) {
    path_ = path;
    if (!createOwnerOnly()) {
      return fmt::format("Could not open the settings in {}: {}", path,
                         std::generic_category().message(errno));
    }
    if (connect(path.c_str(), SQLITE_OPEN_READWRITE) && enableLog() && load()) return {};
    if (isOnReadOnlyPlace() &&
        connect(immutableUri().c_str(), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI) && load()) {
      return {};
    }
    return describe("open");
  }

 protected:
  bool store(std::string_view key, const Value& value) override {
    sqlite3_stmt* statement = store_.get();
    bindText(statement, 1, key);
    if (const auto* text = std::get_if<std::string>(&value)) {
      bindText(statement, 2, "text");
      bindText(statement, 3, *text);
    } else if (const bool* boolean = std::get_if<bool>(&value)) {
      bindText(statement, 2, "boolean");
      sqlite3_bind_int(statement, 3, *boolean);
    } else if (const double* number = std::get_if<double>(&value)) {
      bindText(statement, 2, "number");
      sqlite3_bind_double(statement, 3, *number);
    } else {
      const std::string& bytes = std::get<Data>(value).bytes;
      bindText(statement, 2, "data");
      sqlite3_bind_blob64(statement, 3, placeOf(bytes), bytes.size(), SQLITE_STATIC);
    }
    return change(statement);
  }

  bool erase(std::string_view key) override {
    bindText(erase_.get(), 1, key);
    return change(erase_.get());
  }

 private:
  /// SQLite would create the file readable by all; its -wal and -shm files take after it.
  bool createOwnerOnly() const {
    const int created = ::open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (created >= 0) ::close(created);
    return created >= 0 || access(path_.c_str(), F_OK) == 0;
  }

  bool connect(const char* name, int flags) {
    sqlite3* opened = nullptr;
    const int status = sqlite3_open_v2(name, &opened, flags, nullptr);
    database_.reset(opened);
    if (status == SQLITE_OK) sqlite3_busy_timeout(opened, busyTimeoutMilliseconds);
    return status == SQLITE_OK;
  }

  /// FULL syncs the log at each commit: with NORMAL a power loss could take the last ones.
  bool enableLog() {
    return execute("PRAGMA journal_mode = WAL") && execute("PRAGMA synchronous = FULL");
  }

  /// Where SQLite cannot make its log, nobody changes the file: it can be read as it stands, unless
  /// an old log is beside it, whose commits that would miss.
  bool isOnReadOnlyPlace() const {
    const int code = sqlite3_errcode(database_.get());
    return (code == SQLITE_CANTOPEN || code == SQLITE_READONLY) &&
           access((path_ + "-wal").c_str(), F_OK) != 0;
  }

  std::string immutableUri() const {
    std::string uri = "file:";
    for (const char c : path_) {
      if (c == '%' || c == '?' || c == '#') {
        uri += fmt::format("%{:02X}", c);
      } else {
        uri += c;
      }
    }
    return uri + "?immutable=1";
  }

  bool load() {
    sqlite3* database = database_.get();
    const Statement version = prepare(database, "PRAGMA user_version");
    if (!version || sqlite3_step(version.get()) != SQLITE_ROW) return false;
    if (sqlite3_column_int(version.get(), 0) > formatVersion) {
      reason_ = "a newer version of this program wrote them.";
      return false;
    }
    if (sqlite3_column_int(version.get(), 0) < formatVersion && !create()) return false;
    store_ = prepare(database, "INSERT OR REPLACE INTO settings (key, type, value) VALUES (?,?,?)");
    erase_ = prepare(database, "DELETE FROM settings WHERE key = ?");
    return store_ && erase_ && readAll();
  }

  bool create() {
    return execute(fmt::format("BEGIN IMMEDIATE;"
                               "CREATE TABLE IF NOT EXISTS settings (key TEXT PRIMARY KEY NOT NULL,"
                               " type TEXT NOT NULL, value NOT NULL) WITHOUT ROWID;"
                               "PRAGMA user_version = {};"
                               "COMMIT",
                               formatVersion)
                       .c_str());
  }

  bool readAll() {
    const Statement rows = prepare(database_.get(), "SELECT key, type, value FROM settings");
    if (!rows) return false;
    int status = SQLITE_ROW;
    while ((status = sqlite3_step(rows.get())) == SQLITE_ROW) {
      const std::string type = bytesOf(rows.get(), 1);
      std::optional<Value> value;
      if (type == "text") value = bytesOf(rows.get(), 2);
      if (type == "boolean") value = sqlite3_column_int(rows.get(), 2) != 0;
      if (type == "number") value = sqlite3_column_double(rows.get(), 2);
      if (type == "data") value = Data{bytesOf(rows.get(), 2)};
      if (value) values_.insert_or_assign(bytesOf(rows.get(), 0), std::move(*value));
    }
    return status == SQLITE_DONE;
  }

  bool execute(const char* sql) {
    return sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK;
  }

  /// Runs a bound statement, which commits by itself.
  bool change(sqlite3_stmt* statement) {
    const bool done = sqlite3_step(statement) == SQLITE_DONE;
    lastError_ = done ? "" : describe("change");
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    return done;
  }

  std::string describe(std::string_view action) const {
    sqlite3* database = database_.get();
    const int code = sqlite3_errcode(database);
    std::string reason = reason_;
    if (reason.empty() && code == SQLITE_NOTADB) {
      reason = "it is not a settings file. Move it away to start with new settings.";
    } else if (reason.empty() && (code == SQLITE_BUSY || code == SQLITE_LOCKED)) {
      reason = "another program is using it.";
    } else if (reason.empty()) {
      reason = sqlite3_errmsg(database);
    }
    return fmt::format("Could not {} the settings in {}: {}", action, path_, reason);
  }

  std::string path_;
  std::string reason_;
  Database database_;  // before the statements, which must go first
  Statement store_;
  Statement erase_;
};

}  // namespace

std::unique_ptr<UserDefaults> UserDefaults::inMemory() {
  return std::make_unique<Defaults>();
}

std::expected<std::unique_ptr<UserDefaults>, std::string> UserDefaults::open(
    const std::string& path) {
  auto defaults = std::make_unique<FileDefaults>();
  if (std::string error = defaults->open(path); !error.empty()) return std::unexpected(error);
  return defaults;
}

}  // namespace vantrell
