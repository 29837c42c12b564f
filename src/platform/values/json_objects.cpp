#include "platform/values/json_objects.h"

namespace vantrell::json {

const JsonObject& objectOrEmpty(const JsonObject& container, std::string_view key) {
  static const JsonObject empty;
  const JsonObject* found = object(container, key);
  return found ? *found : empty;
}

std::vector<const JsonObject*> objects(const JsonObject& container, std::string_view key) {
  std::vector<const JsonObject*> found;
  const Json::Array* list = array(container, key);
  if (!list) return found;
  for (const Json& each : *list) {
    if (each.asObject()) found.push_back(each.asObject());
  }
  return found;
}

}  // namespace vantrell::json
