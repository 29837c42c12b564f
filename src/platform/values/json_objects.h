// Objects inside of loosely typed answers, so that a reader needs no test for each level. The
// results are valid as long as the answer. Any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/values/json.h"

namespace vantrell::json {

/// The object under the key, else an empty one.
const JsonObject& objectOrEmpty(const JsonObject& container, std::string_view key);
/// The objects in the list under the key; what else the list holds is left out.
std::vector<const JsonObject*> objects(const JsonObject& container, std::string_view key);
/// Sets the member if there is a value.
template <typename Value>
void setIfKnown(JsonObject& object, std::string key, const std::optional<Value>& value) {
  if (value) object.set(std::move(key), *value);
}

}  // namespace vantrell::json
