// Whatever the bytes, reading ends; and what was read survives each form of writing.
#include <cstdint>
#include <cstdlib>

#include "platform/values/json.h"

using namespace vantrell;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto value = json::parse({reinterpret_cast<const char*>(data), size});
  if (!value) {
    if (value.error().offset > size) std::abort();
    return 0;
  }
  const std::string compact = json::write(*value);
  const auto again = json::parse(compact);
  if (!again || *again != *value || json::write(*again) != compact) std::abort();
  const auto pretty = json::parse(json::writePrettySorted(*value));
  if (!pretty || *pretty != *value) std::abort();
  return 0;
}
