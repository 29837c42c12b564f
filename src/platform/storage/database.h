// SQLite, as much of it as the stores need: one file, its statements and transactions. Any thread,
// one at a time. Nothing throws; what failed last is described by error(). Owned by the store that
// it serves.
#pragma once

#include <cstdint>
#include <expected>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace vantrell {

struct DatabaseError {
  enum class Kind {
    cannotOpen,    // missing folder, permissions, a read-only place
    notADatabase,  // something else, or its first page is damaged
    damaged,
    busy,  // another program holds the file
    full,  // no space left
    other,
  };
  Kind kind = Kind::other;
  std::string text;  // one line for people, without the file's name

  /// The text, with what the user can do about it where that is known.
  std::string withAdvice() const;
};

/// What the beginning of a file says of its length, for those who must not open it: to open a
/// damaged file may change it.
struct DatabaseHeader {
  static constexpr std::size_t length = 100;  // bytes

  std::size_t pageSize = 0;  // bytes
  std::size_t pages = 0;

  /// Of at least `length` bytes.
  static DatabaseHeader read(std::string_view bytes);
};

/// A prepared statement. It must go before its database does.
class Statement {
 public:
  Statement() = default;
  explicit operator bool() const { return statement_ != nullptr; }

  // Places count from 1. The bytes must stay until the statement has run.
  Statement& bind(int place, std::int64_t number);
  Statement& bind(int place, double number);
  Statement& bindText(int place, std::string_view text);
  Statement& bindBytes(int place, std::string_view bytes);

  enum class Step { row, done, failed };
  /// To the next row. After the last one, or to start again, call reset().
  Step step();
  /// Runs a statement that gives no rows, and makes it ready for the next use.
  bool run();
  void reset();

  // Of the row that was stepped to; columns count from 0. Bytes are valid until the next step.
  std::int64_t integer(int column) const;
  double number(int column) const;
  std::string_view bytes(int column) const;

 private:
  friend class Database;
  struct Close {
    void operator()(sqlite3_stmt* statement) const;
  };
  std::unique_ptr<sqlite3_stmt, Close> statement_;
};

class Database {
 public:
  /// Opens the file, which is created owner-only when missing; its folder must exist. Each commit
  /// is on the disk when it returns (a write-ahead log, synced each time). Where nothing can be
  /// written the file opens for reading, if need be a copy of it and its log among the temporary
  /// files. A wait for another program ends after a second.
  static std::expected<Database, DatabaseError> open(const std::string& path);
  /// True when the file holds no database, or one that is damaged. False when it is in use, of a
  /// newer version, not accessible or missing: those can be put right. Reads all of it.
  static bool isDamaged(const std::string& path);

  Statement prepare(std::string_view sql);
  /// Statements without parameters or rows.
  bool execute(const std::string& sql);
  /// The first number that the statement returns, or -1 on failure.
  std::int64_t number(std::string_view sql);
  /// What failed last.
  DatabaseError error() const;
  /// Copies page by page, whatever the pages hold, to a new file that only its owner can read.
  bool copyTo(const std::string& path);
  /// Takes over all pages of another file, whatever is in this one, in one step for everybody who
  /// has it open. The other one must have been made as this one was.
  bool replaceBy(Database& other);

 private:
  struct Close {
    void operator()(sqlite3* database) const;
  };
  /// Opens a file that no program writes to, without making other files.
  static std::expected<Database, DatabaseError> openForReading(const std::string& path);
  bool connect(const std::string& name, int flags);
  static std::expected<Database, DatabaseError> openCopy(const std::string& path);

  std::unique_ptr<sqlite3, Close> database_;
  std::optional<DatabaseError> whyReadOnly_;  // of a file that could not be opened for writing
};

/// Rolls back at its end unless it was committed.
class Transaction {
 public:
  explicit Transaction(Database& database);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  /// Whether it could begin.
  bool isOpen() const { return isOpen_; }
  /// After a failure the transaction is still there, to be rolled back.
  bool commit();

 private:
  Database& database_;
  bool isOpen_;
};

}  // namespace vantrell
