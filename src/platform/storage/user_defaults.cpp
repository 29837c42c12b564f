#include "platform/storage/user_defaults.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <map>
#include <variant>

#include "platform/storage/database.h"

namespace vantrell {
namespace {

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
  bool copyTo(UserDefaults& other) const override {
    const auto copy = [&other](const std::string& key, const Value& value) {
      if (const auto* text = std::get_if<std::string>(&value)) return other.setText(key, *text);
      if (const bool* boolean = std::get_if<bool>(&value)) return other.setBoolean(key, *boolean);
      if (const auto* number = std::get_if<double>(&value)) return other.setNumber(key, *number);
      return other.setData(key, std::get<Data>(value).bytes);
    };
    return std::ranges::all_of(values_,
                               [&](const auto& each) { return copy(each.first, each.second); });
  }

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

class FileDefaults final : public Defaults {
 public:
  /// Empty, or what is wrong.
  std::string open(const std::string& path) {
    path_ = path;
    auto opened = Database::open(path);
    if (!opened) return describe("open", opened.error());
    database_.emplace(std::move(*opened));
    return load();
  }

 protected:
  bool store(std::string_view key, const Value& value) override {
    store_.bindText(1, key);
    if (const auto* text = std::get_if<std::string>(&value)) {
      store_.bindText(2, "text").bindText(3, *text);
    } else if (const bool* boolean = std::get_if<bool>(&value)) {
      store_.bindText(2, "boolean").bind(3, std::int64_t{*boolean});
    } else if (const double* number = std::get_if<double>(&value)) {
      store_.bindText(2, "number").bind(3, *number);
    } else {
      store_.bindText(2, "data").bindBytes(3, std::get<Data>(value).bytes);
    }
    return change(store_);
  }

  bool erase(std::string_view key) override {
    erase_.bindText(1, key);
    return change(erase_);
  }

 private:
  std::string load() {
    const auto version = database_->number("PRAGMA user_version");
    if (version > formatVersion) {
      return describe("open", {.text = "a newer version of this program wrote them."});
    }
    if (version < formatVersion && !create()) return describe("open", database_->error());
    store_ =
        database_->prepare("INSERT OR REPLACE INTO settings (key, type, value) VALUES (?,?,?)");
    erase_ = database_->prepare("DELETE FROM settings WHERE key = ?");
    return store_ && erase_ && readAll() ? "" : describe("open", database_->error());
  }

  bool create() {
    Transaction transaction(*database_);
    return transaction.isOpen() &&
           database_->execute(
               fmt::format("CREATE TABLE IF NOT EXISTS settings (key TEXT PRIMARY KEY NOT NULL,"
                           " type TEXT NOT NULL, value NOT NULL) WITHOUT ROWID;"
                           "PRAGMA user_version = {}",
                           formatVersion)) &&
           transaction.commit();
  }

  bool readAll() {
    Statement rows = database_->prepare("SELECT key, type, value FROM settings");
    if (!rows) return false;
    auto step = Statement::Step::row;
    while ((step = rows.step()) == Statement::Step::row) {
      const std::string_view type = rows.bytes(1);
      std::optional<Value> value;
      if (type == "text") value = std::string(rows.bytes(2));
      if (type == "boolean") value = rows.integer(2) != 0;
      if (type == "number") value = rows.number(2);
      if (type == "data") value = Data{std::string(rows.bytes(2))};
      if (value) values_.insert_or_assign(std::string(rows.bytes(0)), std::move(*value));
    }
    return step == Statement::Step::done;
  }

  /// Runs a bound statement, which commits by itself.
  bool change(Statement& statement) {
    const bool done = statement.run();
    if (done) {
      lastError_.clear();
    } else {
      auto error = database_->error();
      error.text = error.withAdvice();
      lastError_ = describe("change", error);
    }
    return done;
  }

  std::string describe(std::string_view action, const DatabaseError& error) const {
    return fmt::format("Could not {} the settings in {}: {}", action, path_,
                       error.kind == DatabaseError::Kind::notADatabase
                           ? "it is not a settings file. Move it away to start with new settings."
                           : error.text);
  }

  std::string path_;
  std::optional<Database> database_;  // before the statements, which must go first
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
