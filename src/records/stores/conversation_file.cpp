#include "records/stores/conversation_file.h"

#include <algorithm>
#include <cstdio>
#include <fmt/format.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace vantrell {

namespace {

/// Kept in the file's user_version.
constexpr int formatVersion = 1;

// Integer keys keep each table in the order of its keys: the entries of a thread are read in one
// sweep, and a row up to a page long lies in one piece.
constexpr const char* tables =
    "CREATE TABLE workspaces (number INTEGER PRIMARY KEY, place INTEGER NOT NULL,"
    " head TEXT NOT NULL);"
    "CREATE TABLE threads (number INTEGER PRIMARY KEY, workspace INTEGER NOT NULL,"
    " place INTEGER NOT NULL, entries INTEGER NOT NULL, updatedAt REAL NOT NULL);"
    "CREATE TABLE heads (number INTEGER PRIMARY KEY, record TEXT NOT NULL);"
    "CREATE TABLE runs (number INTEGER PRIMARY KEY, record TEXT NOT NULL);"
    "CREATE TABLE entries (number INTEGER PRIMARY KEY, record TEXT NOT NULL);"
    "CREATE TABLE notes (name TEXT PRIMARY KEY NOT NULL, text TEXT NOT NULL) WITHOUT ROWID;";

/// Gives `take` every row that can be read: from the front, and when that meets a damaged page,
/// from the back as well.
template <typename Take>
void readAll(Database& database, const std::string& query, const char* key,
             std::optional<DatabaseError>& damage, Take take) {
  for (const char* direction : {"ASC", "DESC"}) {
    Statement rows = database.prepare(fmt::format("{} ORDER BY {} {}", query, key, direction));
    auto step = Statement::Step::failed;
    while (rows && (step = rows.step()) == Statement::Step::row) take(rows);
    if (step == Statement::Step::done) return;
    if (!damage) damage = database.error();
  }
}

std::size_t sizeOf(const std::string& path) {
  struct stat info{};
  const bool isFile = stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
  return isFile ? static_cast<std::size_t>(info.st_size) : 0;
}

}  // namespace

std::expected<ConversationFile, DatabaseError> ConversationFile::open(const std::string& path) {
  auto database = Database::open(path);
  if (!database) return std::unexpected(database.error());
  ConversationFile file(std::move(*database));
  const auto version = file.database_.number("PRAGMA user_version");
  if (version > formatVersion) {
    return std::unexpected(
        DatabaseError{DatabaseError::Kind::other, "a newer version of this program wrote it"});
  }
  if (version < formatVersion && !file.createTables()) {
    return std::unexpected(file.database_.error());
  }
  return file;
}

ConversationFile::Inspection ConversationFile::inspect(const std::string& path) {
  constexpr std::size_t logHeaderLength = 32;
  constexpr std::string_view magic("SQLite format 3\0", 16);
  const bool hasLog = sizeOf(path + "-wal") > logHeaderLength;
  const std::size_t size = sizeOf(path);  // 0 for what is no file: to open it will tell
  // SQLite drops the log of an empty file.
  if (size == 0 && hasLog) return {"it is empty, but its log is not"};
  if (size == 0) return {};
  char bytes[DatabaseHeader::length] = {};
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                             std::fclose);
  if (!file) return {};  // to open it will tell why
  const std::size_t length = std::fread(bytes, 1, sizeof bytes, file.get());
  const std::string_view begin(bytes, std::min(length, magic.size()));
  if (begin != magic.substr(0, begin.size())) return {"it is not a store of conversations"};
  if (length != sizeof bytes) return {"it is cut short"};
  const auto [pageSize, pages] = DatabaseHeader::read({bytes, sizeof bytes});
  const bool isShort = pageSize == 0 || size % pageSize != 0 || size / pageSize < pages;
  if (!isShort) return {};
  // While its log is there the file may lag behind: a checkpoint that was cut off is done again.
  if (hasLog) return {std::nullopt, true};
  return {"it is cut short"};
}

bool ConversationFile::isSound() {
  Statement check = database_.prepare("PRAGMA quick_check(1)");
  return check && check.step() == Statement::Step::row && check.bytes(0) == "ok";
}

bool ConversationFile::createTables() {
  Transaction transaction(database_);
  return transaction.isOpen() &&
         database_.execute(fmt::format("{} PRAGMA user_version = {}", tables, formatVersion)) &&
         transaction.commit();
}

// ---- reading ------------------------------------------------------------------------------------

ConversationFile::Contents ConversationFile::readContents() {
  Contents contents;
  auto& damage = contents.damage;
  readAll(database_, "SELECT number, place, head FROM workspaces", "number", damage,
          [&](const Statement& row) {
            contents.workspaces[row.integer(0)] = {row.integer(1), std::string(row.bytes(2))};
          });
  readAll(database_, "SELECT number, workspace, place, entries, updatedAt FROM threads", "number",
          damage, [&](const Statement& row) {
            contents.threads[row.integer(0)] = {row.integer(1), row.integer(2), row.integer(3),
                                                row.number(4)};
          });
  for (auto [table, rows] : {std::pair("heads", &contents.heads), {"runs", &contents.runs}}) {
    readAll(database_, fmt::format("SELECT number, record FROM {}", table), "number", damage,
            [rows](const Statement& row) {
              rows->insert_or_assign(row.integer(0), std::string(row.bytes(1)));
            });
  }
  readAll(database_, "SELECT name, text FROM notes", "name", damage, [&](const Statement& row) {
    contents.notes[std::string(row.bytes(0))] = std::string(row.bytes(1));
  });
  return contents;
}

std::vector<std::optional<std::string>> ConversationFile::readEntries(std::int64_t thread,
                                                                      std::size_t first,
                                                                      std::size_t last) {
  std::vector<std::optional<std::string>> texts(last - first);
  const std::string query =
      fmt::format("SELECT number, record FROM entries WHERE number >= {} AND number < {}",
                  rowKey(thread, first), rowKey(thread, last));
  std::optional<DatabaseError> damage;
  readAll(database_, query, "number", damage, [&](const Statement& row) {
    // A damaged page gives rows that were not asked for.
    const std::int64_t place = row.integer(0) - rowKey(thread, first);
    if (place >= 0 && static_cast<std::size_t>(place) < texts.size()) {
      texts[static_cast<std::size_t>(place)] = row.bytes(1);
    }
  });
  if (!damage) return texts;
  // Several pages are damaged: what lies between them can be reached one by one.
  Statement one = database_.prepare("SELECT record FROM entries WHERE number = ?");
  for (std::size_t i = 0; one && i < texts.size(); ++i) {
    if (texts[i]) continue;
    one.bind(1, rowKey(thread, first + i));
    if (one.step() == Statement::Step::row) texts[i] = one.bytes(0);
    one.reset();
  }
  return texts;
}

std::size_t ConversationFile::countEntries(std::int64_t thread) {
  const auto last = database_.number(
      fmt::format("SELECT max(number) FROM entries WHERE number >= {} AND number < {}",
                  rowKey(thread, 0), rowKey(thread + 1, 0)));
  return last < rowKey(thread, 0) ? 0 : static_cast<std::size_t>(last - rowKey(thread, 0)) + 1;
}

std::int64_t ConversationFile::lastThread() {
  std::int64_t last = 0;
  for (const char* table : {"runs", "entries"}) {
    last = std::max(last, database_.number(fmt::format("SELECT max(number) >> 32 FROM {}", table)));
  }
  for (const char* table : {"threads", "heads", "workspaces"}) {
    last = std::max(last, database_.number(fmt::format("SELECT max(number) FROM {}", table)));
  }
  return last;
}

// ---- writing ------------------------------------------------------------------------------------

std::expected<void, DatabaseError> ConversationFile::write(const SaveBatch& batch) {
  Transaction transaction(database_);
  if (transaction.isOpen() && writeRows(batch) && transaction.commit()) return {};
  return std::unexpected(database_.error());
}

bool ConversationFile::mend(const std::string& scratch) {
  const auto removeScratch = [&] {
    for (const char* suffix : {"", "-wal", "-shm"}) ::unlink((scratch + suffix).c_str());
  };
  removeScratch();  // of one that was killed
  bool isDone = false;
  if (auto sound = open(scratch)) {
    const Contents contents = readContents();
    SaveBatch batch{.heads = contents.heads, .runs = contents.runs, .notes = contents.notes};
    batch.workspaces.insert(contents.workspaces.begin(), contents.workspaces.end());
    batch.threads.insert(contents.threads.begin(), contents.threads.end());
    isDone = sound->write(batch).has_value();
    for (std::int64_t thread = 1; isDone && thread <= lastThread(); ++thread) {
      SaveBatch part;
      const auto rows = readEntries(thread, 0, countEntries(thread));
      for (std::size_t i = 0; i < rows.size(); ++i) {
        if (rows[i]) part.entries[rowKey(thread, i)] = *rows[i];
      }
      isDone = sound->write(part).has_value();
    }
    isDone = isDone && database_.replaceBy(sound->database_);
  }
  removeScratch();
  return isDone;
}

bool ConversationFile::writeRows(const SaveBatch& batch) {
  return writeStructure(batch) && cut("runs", batch.runLengths) &&
         cut("entries", batch.entryLengths) && put("heads", batch.heads) &&
         put("runs", batch.runs) && put("entries", batch.entries);
}

bool ConversationFile::writeStructure(const SaveBatch& batch) {
  for (const auto& [number, row] : batch.workspaces) {
    Statement statement = database_.prepare(row ? "INSERT OR REPLACE INTO workspaces VALUES (?,?,?)"
                                                : "DELETE FROM workspaces WHERE number = ?");
    if (!statement) return false;
    statement.bind(1, number);
    if (row) statement.bind(2, row->place).bindText(3, row->head);
    if (!statement.run()) return false;
  }
  Statement put = database_.prepare("INSERT OR REPLACE INTO threads VALUES (?,?,?,?,?)");
  if (!put) return false;
  for (const auto& [number, row] : batch.threads) {
    if (!row) {
      if (!removeThread(number)) return false;
      continue;
    }
    put.bind(1, number).bind(2, row->workspace).bind(3, row->place).bind(4, row->entries);
    if (!put.bind(5, row->updatedAt).run()) return false;
  }
  Statement note = database_.prepare("INSERT OR REPLACE INTO notes VALUES (?,?)");
  if (!note) return false;
  for (const auto& [name, text] : batch.notes) {
    if (!note.bindText(1, name).bindText(2, text).run()) return false;
  }
  return true;
}

bool ConversationFile::removeThread(std::int64_t number) {
  const SaveBatch::Lengths all{{number, 0}};
  return cut("runs", all) && cut("entries", all) &&
         database_.execute(fmt::format("DELETE FROM heads WHERE number = {0};"
                                       "DELETE FROM threads WHERE number = {0}",
                                       number));
}

bool ConversationFile::cut(const char* table, const SaveBatch::Lengths& lengths) {
  for (const auto& [thread, length] : lengths) {
    if (!database_.execute(fmt::format("DELETE FROM {} WHERE number >= {} AND number < {}", table,
                                       rowKey(thread, length), rowKey(thread + 1, 0)))) {
      return false;
    }
  }
  return true;
}

bool ConversationFile::put(const char* table, const SaveBatch::Rows& rows) {
  if (rows.empty()) return true;
  Statement statement =
      database_.prepare(fmt::format("INSERT OR REPLACE INTO {} VALUES (?,?)", table));
  if (!statement) return false;
  for (const auto& [number, record] : rows) {
    if (!statement.bind(1, number).bindText(2, record).run()) return false;
  }
  return true;
}

}  // namespace vantrell
