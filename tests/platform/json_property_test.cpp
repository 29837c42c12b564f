// Properties of the reader and the writers over many random values; the seeds are fixed, so that a
// failure repeats.
#include <bit>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <random>

#include "platform/values/json.h"

namespace vantrell {
namespace {

class RandomJson {
 public:
  explicit RandomJson(std::uint32_t seed) : engine_(seed) {}

  Json value(int depth) {
    switch (below(depth > 0 ? 8 : 6)) {
      case 0: return nullptr;
      case 1: return below(2) == 0;
      case 2: return static_cast<std::int64_t>(engine_());
      case 3: return static_cast<std::int64_t>(below(1000)) - 500;
      case 4: return number();
      case 5: return text();
      case 6: {
        Json::Array elements;
        for (std::size_t i = below(5); i > 0; --i) elements.push_back(value(depth - 1));
        return elements;
      }
      default: {
        JsonObject object;
        for (std::size_t i = below(below(10) == 0 ? 40 : 6); i > 0; --i) {
          object.set(text(), value(depth - 1));
        }
        return object;
      }
    }
  }

  /// Any bit pattern that is a finite number.
  double number() {
    while (true) {
      const auto candidate = std::bit_cast<double>(engine_());
      if (std::isfinite(candidate)) return candidate;
    }
  }

  std::size_t below(std::size_t limit) { return engine_() % limit; }

 private:
  std::string text() {
    const std::string_view pieces[] = {
        "a",      "key",    "\"",         "\\",   "\n",   "\x01", " ",
        "\u00e9", "\u2028", "\U0001F600", "\x7f", "word", "/",    "eight by eight bytes"};
    std::string text;
    for (std::size_t i = below(6); i > 0; --i) text += pieces[below(std::size(pieces))];
    return text;
  }

  std::mt19937_64 engine_;
};

TEST(JsonProperty, RandomValuesSurviveWritingAndReading) {
  RandomJson random(1);
  for (int i = 0; i < 3000; ++i) {
    const Json value = random.value(4);
    const std::string compact = json::write(value);
    const auto read = json::parse(compact);
    ASSERT_TRUE(read) << compact << ": " << read.error().message;
    ASSERT_EQ(*read, value) << compact;
    ASSERT_EQ(json::write(*read), compact) << "the order of keys, too, must survive";
    const auto pretty = json::parse(json::writePrettySorted(value));
    ASSERT_TRUE(pretty) << compact;
    ASSERT_EQ(*pretty, value) << compact;
  }
}

}  // namespace
}  // namespace vantrell
