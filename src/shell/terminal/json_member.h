// One member of a JSON object that a command prints.
#pragma once

#include <string_view>

#include "platform/values/json.h"

namespace vantrell::shell {

template <typename Value>
void member(JsonWriter& writer, std::string_view key, const Value& value) {
  writer.key(key);
  writer.value(value);
}

}  // namespace vantrell::shell
