// Keeps the orchestration records (usage, review notes, project contexts and the like), each as one
// JSON file in an owner-only folder: pretty printed, keys sorted, dates in ISO 8601. Main queue;
// the files are small. There is one reader and writer.
//
// Heavy with templates: include it in the .cpp files that load and save.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/files/files.h"
#include "platform/values/date.h"
#include "platform/values/json.h"
#include "records/stores/json_fields.h"

namespace vantrell {

class OrchestrationStore {
 public:
  /// The support folder is the program's own data folder; the files lie in the subfolder. `now`
  /// gives the date that an unreadable file is put aside under; `notice` gets a sentence for the
  /// user when that happened.
  OrchestrationStore(std::string supportFolder, std::function<Date()> now,
                     std::function<void(const std::string&)> notice,
                     std::string_view subfolder = "Orchestration");

  /// Where the file of that name lies, which may hold a subfolder: "contexts/{id}.json".
  std::string url(std::string_view name) const;

  /// The stored value, or the given one when the file is missing, unreadable or of another form.
  /// The file of one that could not be read stays as it is until save() puts another in its place.
  template <typename Value>
  Value load(std::string_view name, Value otherwise) {
    const std::optional<Json> json = loadJson(name);
    if (!json) return otherwise;
    Value value{};
    JsonReading reading{orchestrationJson};
    if (readJson(*json, value, reading)) return value;
    markUnreadable(name, reading.error.text());
    return otherwise;
  }

  /// Why load() could not read the file of that name, until another takes its place; null where it
  /// could, or there is none.
  const std::string* whyUnreadable(std::string_view name) const {
    const auto found = unreadable_.find(name);
    return found == unreadable_.end() ? nullptr : &found->second;
  }

  /// Durable when it answers; after a failure the former file stands. One that load() could not
  /// read is kept beside it first, under a name with the date; when that fails nothing is written.
  template <typename Value>
  files::Result<> save(const Value& value, std::string_view name) {
    return prepareSave(value, name)();
  }

  /// The same in two steps: what is answered waits for the disk, on any thread. Those of one file
  /// are called one after the other, in their order.
  using Write = std::function<files::Result<>()>;
  template <typename Value>
  Write prepareSave(const Value& value, std::string_view name) {
    return prepareText([text = encoded(value)] { return text; }, name);
  }
  /// The same for what is large and shared: it is encoded on the thread that writes.
  template <typename Value>
  Write prepareSharedSave(std::shared_ptr<const Value> value, std::string_view name) {
    return prepareText([value = std::move(value)] { return encoded(*value); }, name);
  }

 private:
  template <typename Value>
  static std::string encoded(const Value& value) {
    std::string text;
    JsonWriter writer(text);
    writeJson(writer, value, orchestrationJson);
    return text;
  }

  std::optional<Json> loadJson(std::string_view name);
  Write prepareText(std::function<std::string()> encode, std::string_view name);
  files::Result<> keepUnreadable(std::string_view name);
  void markUnreadable(std::string_view name, std::string reason);

  std::string folder_;
  std::function<Date()> now_;
  std::function<void(const std::string&)> notice_;
  /// Names of files that load() could not read and that have no copy yet, with the reason.
  std::map<std::string, std::string, std::less<>> unreadable_;
};

}  // namespace vantrell
