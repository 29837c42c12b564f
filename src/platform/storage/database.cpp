#include "platform/storage/database.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "platform/files/files.h"
#include "platform/values/url.h"

namespace vantrell {

namespace {

/// How long a statement waits for another process that holds the file.
constexpr int busyTimeoutMilliseconds = 1000;

/// Bytes, for SQLite. It only says that it cannot open what has a longer one.
constexpr std::size_t longestPath = 504;

/// The literal gives an empty view a place, by which SQLite distinguishes an empty value from none.
const char* placeOf(std::string_view bytes) {
  return bytes.empty() ? "" : bytes.data();
}

/// SQLite would create the file readable by all; its -wal and -shm files take after it.
bool createOwnerOnly(const std::string& path) {
  const int created = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (created >= 0) ::close(created);
  return created >= 0 || access(path.c_str(), F_OK) == 0;
}

std::string immutableUri(const std::string& path) {
  return "file:" + percentEncoded(path, "-_.~/") + "?immutable=1";
}

DatabaseError::Kind kindOf(int code) {
  using enum DatabaseError::Kind;
  switch (code) {
    case SQLITE_CANTOPEN:
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH: return cannotOpen;
    case SQLITE_NOTADB: return notADatabase;
    case SQLITE_CORRUPT: return damaged;
    case SQLITE_BUSY:
    case SQLITE_LOCKED: return busy;
    case SQLITE_FULL: return full;
    default: return other;
  }
}

std::size_t bigEndian(std::string_view bytes) {
  std::size_t value = 0;
  for (const char byte : bytes) value = value << 8 | static_cast<unsigned char>(byte);
  return value;
}

}  // namespace

// SQLite's file format: the page size is at byte 16, where 1 stands for 65536, the number of pages
// at 28.
DatabaseHeader DatabaseHeader::read(std::string_view bytes) {
  const std::size_t pageSize = bigEndian(bytes.substr(16, 2));
  return {.pageSize = pageSize == 1 ? 65536 : pageSize, .pages = bigEndian(bytes.substr(28, 4))};
}

std::string DatabaseError::withAdvice() const {
  switch (kind) {
    case Kind::full: return text + ". Free some space";
    case Kind::cannotOpen: return text + ". Make the file and its folder writable";
    default: return text;
  }
}

// ---- statements ---------------------------------------------------------------------------------

void Statement::Close::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

Statement& Statement::bind(int place, std::int64_t number) {
  sqlite3_bind_int64(statement_.get(), place, number);
  return *this;
}

Statement& Statement::bind(int place, double number) {
  sqlite3_bind_double(statement_.get(), place, number);
  return *this;
}

Statement& Statement::bindText(int place, std::string_view text) {
  sqlite3_bind_text64(statement_.get(), place, placeOf(text), text.size(), SQLITE_STATIC,
                      SQLITE_UTF8);
  return *this;
}

Statement& Statement::bindBytes(int place, std::string_view bytes) {
  sqlite3_bind_blob64(statement_.get(), place, placeOf(bytes), bytes.size(), SQLITE_STATIC);
  return *this;
}

Statement::Step Statement::step() {
  switch (sqlite3_step(statement_.get())) {
    case SQLITE_ROW: return Step::row;
    case SQLITE_DONE: return Step::done;
    default: return Step::failed;
  }
}

bool Statement::run() {
  const bool done = step() == Step::done;
  reset();
  sqlite3_clear_bindings(statement_.get());
  return done;
}

void Statement::reset() {
  sqlite3_reset(statement_.get());
}

std::int64_t Statement::integer(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

double Statement::number(int column) const {
  return sqlite3_column_double(statement_.get(), column);
}

std::string_view Statement::bytes(int column) const {
  const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_.get(), column));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
  return bytes ? std::string_view(bytes, size) : std::string_view();
}

// ---- the file -----------------------------------------------------------------------------------

void Database::Close::operator()(sqlite3* database) const {
  sqlite3_close_v2(database);
}

std::expected<Database, DatabaseError> Database::open(const std::string& path) {
  if (path.size() > longestPath) {
    return std::unexpected(DatabaseError{
        DatabaseError::Kind::other,
        fmt::format("its path is {} bytes long, and at most {} are possible; use a shorter one",
                    path.size(), longestPath)});
  }
  if (!createOwnerOnly(path)) {
    return std::unexpected(
        DatabaseError{DatabaseError::Kind::cannotOpen, std::generic_category().message(errno)});
  }
  Database database;
  // FULL syncs the log at each commit: with NORMAL a power loss could take the last ones. The
  // version is read because only a first reading meets what is wrong with the file.
  if (database.connect(path, SQLITE_OPEN_READWRITE) &&
      database.execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL") &&
      database.number("PRAGMA user_version") >= 0) {
    return database;
  }
  DatabaseError error = database.error();
  const int code = sqlite3_errcode(database.database_.get());
  if (code == SQLITE_FULL || code == SQLITE_IOERR) {
    // Without room for the shared index of its log, the file can be used by one process alone.
    Database alone;
    if (alone.connect(path, SQLITE_OPEN_READWRITE) &&
        alone.execute("PRAGMA locking_mode = EXCLUSIVE; PRAGMA synchronous = FULL") &&
        alone.number("PRAGMA user_version") >= 0) {
      return alone;
    }
  }
  if (code == SQLITE_CANTOPEN || code == SQLITE_READONLY || code == SQLITE_FULL ||
      code == SQLITE_IOERR) {
    // Where SQLite cannot make its log, the file does not change: it can be read as it stands, but
    // for the commits in a log that is left beside it.
    struct stat info{};
    const bool hasLog = stat((path + "-wal").c_str(), &info) == 0 && info.st_size > 0;
    auto readable = hasLog ? openCopy(path) : openForReading(path);
    if (readable) {
      readable->whyReadOnly_ = std::move(error);
      return readable;
    }
  }
  // "unsupported file format": SQLite has not written that.
  if (code == SQLITE_ERROR) error.kind = DatabaseError::Kind::damaged;
  return std::unexpected(std::move(error));
}

std::expected<Database, DatabaseError> Database::openForReading(const std::string& path) {
  Database database;
  if (database.connect(immutableUri(path), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI) &&
      database.number("PRAGMA user_version") >= 0) {
    return database;
  }
  return std::unexpected(database.error());
}

bool Database::isDamaged(const std::string& path) {
  Database database;
  if (database.connect(path, SQLITE_OPEN_READONLY)) {
    // Reads every page; the first row is "ok", or what is wrong.
    Statement check = database.prepare("PRAGMA quick_check(1)");
    if (check && check.step() == Statement::Step::row) return check.bytes(0) != "ok";
  }
  const auto kind = database.error().kind;
  return kind == DatabaseError::Kind::notADatabase || kind == DatabaseError::Kind::damaged;
}

bool Database::connect(const std::string& name, int flags) {
  sqlite3* opened = nullptr;
  const int status = sqlite3_open_v2(name.c_str(), &opened, flags, nullptr);
  database_.reset(opened);
  if (status == SQLITE_OK) sqlite3_busy_timeout(opened, busyTimeoutMilliseconds);
  return status == SQLITE_OK;
}

/// Of the file and its log, for reading only: what is written to it would be lost.
std::expected<Database, DatabaseError> Database::openCopy(const std::string& path) {
  namespace fs = std::filesystem;
  for (const auto& place : {files::temporaryFolder(), std::string("/dev/shm")}) {
    std::string folder = place + "/vantrell-XXXXXX";
    if (!mkdtemp(folder.data())) continue;
    const std::string copy = folder + "/copy";
    std::error_code code;
    fs::copy_file(path, copy, code);
    if (!code) fs::copy_file(path + "-wal", copy + "-wal", code);
    Database database;
    const bool isOpen = !code && database.connect(copy, SQLITE_OPEN_READWRITE) &&
                        database.execute("PRAGMA query_only = ON") &&
                        database.number("PRAGMA user_version") >= 0;
    fs::remove_all(folder, code);  // what is open stays
    if (isOpen) return database;
  }
  return std::unexpected(DatabaseError{});
}

Statement Database::prepare(std::string_view sql) {
  sqlite3_stmt* prepared = nullptr;
  sqlite3_prepare_v2(database_.get(), sql.data(), static_cast<int>(sql.size()), &prepared, nullptr);
  Statement statement;
  statement.statement_.reset(prepared);
  return statement;
}

bool Database::execute(const std::string& sql) {
  return sqlite3_exec(database_.get(), sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

std::int64_t Database::number(std::string_view sql) {
  Statement statement = prepare(sql);
  return statement && statement.step() == Statement::Step::row ? statement.integer(0) : -1;
}

DatabaseError Database::error() const {
  if (whyReadOnly_ && sqlite3_errcode(database_.get()) == SQLITE_READONLY) return *whyReadOnly_;
  const auto kind = kindOf(sqlite3_errcode(database_.get()));
  if (kind == DatabaseError::Kind::busy) return {kind, "another program is using it."};
  std::string text = sqlite3_errmsg(database_.get());
  // SQLite says "disk I/O error" for much; the system knows more.
  const int code = sqlite3_system_errno(database_.get());
  const bool hasReason =
      kind == DatabaseError::Kind::other || sqlite3_errcode(database_.get()) == SQLITE_CANTOPEN;
  if (!hasReason || code == 0) return {kind, std::move(text)};
  text += fmt::format(" ({})", std::generic_category().message(code));
  const bool isFull = code == ENOSPC || code == EDQUOT || code == EFBIG;
  return {isFull ? DatabaseError::Kind::full : kind, std::move(text)};
}

bool Database::copyTo(const std::string& path) {
  if (access(path.c_str(), F_OK) == 0 || !createOwnerOnly(path)) return false;
  Database copy;
  const bool done = copy.connect(path, SQLITE_OPEN_READWRITE) && copy.replaceBy(*this);
  if (!done) unlink(path.c_str());
  return done;
}

bool Database::replaceBy(Database& other) {
  sqlite3_backup* backup =
      sqlite3_backup_init(database_.get(), "main", other.database_.get(), "main");
  const int status = sqlite3_backup_step(backup, -1);
  return sqlite3_backup_finish(backup) == SQLITE_OK && status == SQLITE_DONE;
}

// ---- transactions -------------------------------------------------------------------------------

Transaction::Transaction(Database& database)
    : database_(database), isOpen_(database.execute("BEGIN IMMEDIATE")) {}

Transaction::~Transaction() {
  // SQLite has rolled back by itself after some failures; to do it again does no harm.
  if (isOpen_) database_.execute("ROLLBACK");
}

bool Transaction::commit() {
  if (!isOpen_ || !database_.execute("COMMIT")) return false;
  isOpen_ = false;
  return true;
}

}  // namespace vantrell
