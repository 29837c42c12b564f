#include "platform/storage/user_defaults_damage.h"

#include <cstring>
#include <sqlite3.h>

namespace vantrell {

bool isDamagedSettingsFile(const std::string& path) {
  sqlite3* database = nullptr;
  int status = sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READONLY, nullptr);
  bool isSound = true;
  if (status == SQLITE_OK) {
    // Reads every page; the first row is "ok", or what is wrong.
    sqlite3_stmt* check = nullptr;
    status = sqlite3_prepare_v2(database, "PRAGMA quick_check(1)", -1, &check, nullptr);
    if (status == SQLITE_OK) status = sqlite3_step(check);
    if (status == SQLITE_ROW) {
      const auto* answer = reinterpret_cast<const char*>(sqlite3_column_text(check, 0));
      isSound = answer && std::strcmp(answer, "ok") == 0;
    }
    sqlite3_finalize(check);
  }
  sqlite3_close_v2(database);
  return status == SQLITE_NOTADB || status == SQLITE_CORRUPT || !isSound;
}

}  // namespace vantrell
