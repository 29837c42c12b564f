// The media library on disk: the files, each under a name of its own, and "history.json", which
// lists them, newest first. Main queue, but for what says otherwise; blocks for a moment.
#pragma once

#include <expected>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/files/files.h"
#include "platform/values/json.h"
#include "records/values/imagine_item.h"

namespace vantrell {

class ImagineStore {
 public:
  /// The support folder is the program's own data folder. `now` gives the date that an unreadable
  /// history is put aside under; `notice` gets a sentence for the user when that happened.
  ImagineStore(std::string supportFolder, std::function<Date()> now,
               std::function<void(const std::string&)> notice);

  /// The folder of the library, made (or taken over from the program's earlier name) when it is
  /// missing.
  files::Result<std::string> directory() const;
  /// The items whose files are there. Empty where the history is missing or cannot be read. Makes
  /// no folder where there is no library.
  std::vector<ImagineItem> load();
  /// Replaces the history; after a failure the former one stands. One that load() could not read is
  /// kept beside it first, under a name with the date; when that fails nothing is written.
  files::Result<> save(const std::vector<ImagineItem>& items);

  /// What load() would find, for a process that does not own the library: changes nothing.
  static std::vector<ImagineItem> peek(const std::string& supportFolder);
  /// Why that is nothing, where the history is there and cannot be read.
  static std::optional<std::string> problem(const std::string& supportFolder);
  /// The one file that is meant by a path, however it is written. What begins with "///" is the
  /// rest of a file URL, in which blanks and the like may be encoded.
  static std::string sourceOf(const std::string& path);
  /// Copies the file into the library; it stays where it is. Absent where there is no such file, or
  /// it is no medium. Takes as long as the copy, or until it is stopped: any thread.
  static files::Result<std::optional<ImagineItem>> importMedia(const std::string& supportFolder,
                                                               const std::string& path,
                                                               const std::string& prompt, Date now,
                                                               const std::stop_token& stop = {});

 private:
  const std::string supportFolder_;
  std::function<Date()> now_;
  std::function<void(const std::string&)> notice_;
  std::optional<std::string> whyUnreadable_;  // of the history that lies there
};

/// As one JSON object, named as in the history.
void writeJson(JsonWriter& writer, const ImagineItem& item);

}  // namespace vantrell
