// Typed per-user settings by key, durable when set() returns. Main queue only (a write costs about
// a quarter of a millisecond, up to a second when another process holds the file; reads come from
// memory, so what another process writes is seen at the next open).
#pragma once

#include <expected>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace vantrell {

class UserDefaults {
 public:
  virtual ~UserDefaults() = default;
  // nullopt when the key is missing or holds another type.
  virtual std::optional<std::string> text(std::string_view key) const = 0;
  virtual std::optional<bool> boolean(std::string_view key) const = 0;
  virtual std::optional<double> number(std::string_view key) const = 0;
  virtual std::optional<std::string> data(std::string_view key) const = 0;

  // Each replaces a value of any type and returns whether the value is stored; a failure (disk
  // full, read-only folder, locked file, a number that is NaN) leaves the old value and is
  // described by lastError().
  virtual bool setText(std::string_view key, std::string_view value) = 0;
  virtual bool setBoolean(std::string_view key, bool value) = 0;
  virtual bool setNumber(std::string_view key, double value) = 0;
  virtual bool setData(std::string_view key, std::string_view bytes) = 0;
  virtual bool remove(std::string_view key) = 0;  // also true when there was none
  virtual const std::string& lastError() const = 0;
  /// Stores all values in another one as well, and returns whether all are stored there.
  virtual bool copyTo(UserDefaults& other) const = 0;

  /// A store in memory, for tests and for what must not be kept.
  static std::unique_ptr<UserDefaults> inMemory();
  /// The store in the given file (SQLite), created owner-only when missing; its folder must exist.
  /// Where nothing can be written it opens for reading. The error is one line for people.
  static std::expected<std::unique_ptr<UserDefaults>, std::string> open(const std::string& path);
};

}  // namespace vantrell
