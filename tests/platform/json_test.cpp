#include "platform/values/json.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <ctime>
#include <gtest/gtest.h>
#include <limits>
#include <random>

namespace vantrell {
namespace {

std::string rewritten(std::string_view text) {
  const auto value = json::parse(text);
  return value ? json::write(*value) : "refused: " + value.error().message;
}

struct Case {
  std::string_view in;
  std::string_view out;
};

TEST(Json, KeepsIntegersExactAndWritesDoublesShortest) {
  const Case cases[] = {
      {"0", "0"},
      {"-0", "-0"},
      {"9223372036854775807", "9223372036854775807"},
      {"-9223372036854775808", "-9223372036854775808"},
      {"9007199254740993", "9007199254740993"},
      {"9223372036854775808", "9223372036854775808"},  // a double, 2^63
      {"123456789012345678901234567890", "1.2345678901234568e+29"},
      {"0.5", "0.5"},
      {"5.0", "5"},
      {"-100000.0", "-100000"},
      {"0.1", "0.1"},
      {"2.5E-3", "0.0025"},
      {"785712345.123456", "785712345.123456"},
      {"5e-324", "5e-324"},
      {"1.7976931348623157e308", "1.7976931348623157e+308"},
      {"1e-400", "0"},
      {"0e99999999999999999999", "0"},
      {"1e-99999999999999999999", "0"},
      {"21e-9223372036854775807", "0"},
      {"21e9223372036854775807", "refused: a number beyond the range of a double"},
      {"-1e999", "refused: a number beyond the range of a double"},
  };
  // By the whole size, and not by the exponent alone.
  const std::string zeros(400, '0');
  EXPECT_EQ(rewritten("1" + zeros + "e-400"), "1");
  EXPECT_EQ(rewritten("0." + zeros + "1e5"), "0");
  for (const Case& c : cases) EXPECT_EQ(rewritten(c.in), c.out) << c.in;

  EXPECT_TRUE(json::parse("9223372036854775807")->asInteger());
  EXPECT_TRUE(json::parse("9223372036854775808")->asDouble());
  EXPECT_TRUE(json::parse("-0")->asDouble());
  EXPECT_EQ(json::write(Json(std::nan(""))), "null");
  EXPECT_EQ(json::write(Json(-std::numeric_limits<double>::infinity())), "null");
}

TEST(Json, ReplacesHalvesOfSurrogatePairs) {
  const Case cases[] = {
      {R"("\ud83d\ude00")", "\"\U0001F600\""},
      {R"("\uDBFF\uDFFF")", "\"\U0010FFFF\""},
      {R"("x\ud83d")", "\"x\uFFFD\""},
      {R"("\ude00x")", "\"\uFFFDx\""},
      {R"("\ud83d\ud83d\ude00")", "\"\uFFFD\U0001F600\""},
      {R"("\ud83d\n")", "\"\uFFFD\\n\""},
      {R"("\ud83d\u0041")", "\"\uFFFDA\""},
  };
  for (const Case& c : cases) EXPECT_EQ(rewritten(c.in), c.out) << c.in;
}

TEST(Json, RefusesWhatIsNotJsonAndSaysWhere) {
  const std::pair<std::size_t, std::vector<std::string_view>> refusalsByOffset[] = {
      {0, {"", "nul", "True", "01", "+1", ".5", "NaN", "Infinity", "'a'", "/**/1"}},
      {1, {"[", "{a:1}", "{1:1}", "-", "-a", "0x10"}},
      {2, {"  ", "1 2", "1.", "1.e5", "1e", "\"a", "\"\\x\"", "\"\\", "\"a\nb\""}},
      {3, {"[1,]", "[1 2]", "{} x", "1e+", "[1]]", "\xEF\xBB\xBF"}},
      {4, {"nulll"}},
      {5, {"{\"a\" 1}", "{\"a\":}", "\"\\u12g4\"", "\"\\u12"}},
      {6, {"{\"a\":1"}},
      {7, {"{\"a\":1,}"}},
      {9, {"\"\\ud83d\\u\""}}};
  for (const auto& [offset, texts] : refusalsByOffset) {
    for (const std::string_view text : texts) {
      const auto value = json::parse(text);
      ASSERT_FALSE(value) << text;
      EXPECT_EQ(value.error().offset, offset) << text;
      EXPECT_FALSE(value.error().message.empty());
    }
  }
}

TEST(Json, RefusesInvalidUtf8Wherever) {
  const std::string_view bad[] = {"\x80",         "\xC0\xAF",         "\xC3",
                                  "\xE0\x80\x80", "\xED\xA0\x80",     "\xF0\x80\x80\x80",
                                  "\xE2\x82",     "\xF4\x90\x80\x80", "\xFF"};
  for (const std::string_view bytes : bad) {
    for (const std::size_t before : {0, 5, 8, 17}) {
      const std::string text = "\"" + std::string(before, 'a') + std::string(bytes) + "b\"";
      const auto value = json::parse(text);
      ASSERT_FALSE(value) << before;
      EXPECT_EQ(value.error().offset, 1 + before);
    }
  }
}

TEST(Json, RefusesDeepNestingWithoutExhaustingTheStack) {
  const auto nested = [](std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
  };
  const auto deepest = json::parse(nested(512));
  ASSERT_TRUE(deepest);
  EXPECT_EQ(json::write(*deepest), nested(512));
  EXPECT_EQ(*deepest, *json::parse(nested(512)));
  EXPECT_FALSE(json::parse(nested(513)));
  EXPECT_FALSE(json::parse(std::string(5'000'000, '[')));
  std::string objects;
  for (int i = 0; i < 513; ++i) objects += "{\"a\":";
  EXPECT_EQ(json::parse(objects).error().message, "nested too deeply");
}

TEST(Json, DoubledKeyKeepsTheLastValueAtTheFirstPlace) {
  EXPECT_EQ(rewritten(R"({"a":1,"b":2,"a":3,"c":4,"a":5,"b":6})"), R"({"a":5,"b":6,"c":4})");

  // Enough members to take the path for large objects.
  std::string text = "{";
  std::string expected = "{";
  for (int i = 0; i < 40; ++i)
    text += "\"k" + std::to_string(i % 25) + "\":" + std::to_string(i) + ",";
  for (int i = 0; i < 25; ++i) {
    expected += "\"k" + std::to_string(i) + "\":" + std::to_string(i < 15 ? i + 25 : i) + ",";
  }
  text.back() = expected.back() = '}';
  EXPECT_EQ(rewritten(text), expected);
}

/// An object of that many keys, all different or all the same.
std::string objectOfKeys(int count, bool different) {
  std::string text = "{";
  for (int i = 0; i < count; ++i) {
    text += "\"k" + std::to_string(different ? i : 0) + "\":" + std::to_string(i) + ",";
  }
  text.back() = '}';
  return text;
}

TEST(Json, ManyKeysAreNotComparedPairByPair) {
  // Of the processor, not of the clock: another process may take it away.
  const auto timeFor = [](int count) {
    const std::string text = objectOfKeys(count, true);
    auto best = std::numeric_limits<std::clock_t>::max();
    for (int i = 0; i < 5; ++i) {
      const std::clock_t start = std::clock();
      const auto value = json::parse(text);
      EXPECT_EQ(value->asObject()->size(), static_cast<std::size_t>(count));
      EXPECT_EQ(*value, *value);
      best = std::min(best, std::clock() - start);
    }
    return best;
  };
  // Sixteen times the keys: 256 times the work if it were quadratic, about 20 as it is.
  EXPECT_LT(timeFor(32'000), 80 * std::max<std::clock_t>(timeFor(2'000), 1));
  EXPECT_EQ(rewritten(objectOfKeys(32'000, false)), R"({"k0":31999})");
}

TEST(Json, ComparesAsJsonDoes) {
  EXPECT_EQ(*json::parse(R"({"a":1,"b":[2.0]})"), *json::parse(R"({"b":[2],"a":1.0})"));
  EXPECT_NE(*json::parse(R"({"a":1})"), *json::parse(R"({"a":1,"b":2})"));
  EXPECT_NE(*json::parse(R"({"a":1})"), *json::parse(R"({"b":1})"));
  EXPECT_NE(*json::parse("[1,2]"), *json::parse("[2,1]"));
  EXPECT_NE(Json(1), Json("1"));
  EXPECT_NE(Json(), Json(false));
  EXPECT_NE(Json(std::int64_t{9007199254740993}), Json(9007199254740992.0));
  EXPECT_NE(Json(std::numeric_limits<std::int64_t>::max()), Json(9223372036854775808.0));
  EXPECT_NE(Json(1), Json(std::nan("")));
}

TEST(JsonObject, KeepsTheOrderOfFirstSetting) {
  JsonObject object{{"b", 1}, {"a", 2}, {"b", 3}};
  object.set("c", "x");
  object.set("a", nullptr);
  EXPECT_EQ(json::write(object), R"({"b":3,"a":null,"c":"x"})");
  EXPECT_TRUE(object.remove("b"));
  EXPECT_FALSE(object.remove("b"));
  EXPECT_EQ(json::write(object), R"({"a":null,"c":"x"})");
  EXPECT_EQ(object.find("b"), nullptr);
  EXPECT_EQ(*object.find("c"), Json("x"));
}

TEST(Json, PrettyFormIsSortedAndIndentedByTwo) {
  const auto value = json::parse(R"({"b":[1,{"z":{},"y":[]}],"a":"x","B":null,"\u00e9":1})");
  EXPECT_EQ(json::writePrettySorted(*value), R"({
  "B": null,
  "a": "x",
  "b": [
    1,
    {
      "y": [],
      "z": {}
    }
  ],
  ")"
                                             "\u00e9"
                                             R"(": 1
})");
  EXPECT_EQ(json::writePrettySorted(JsonObject()), "{}");
}

TEST(Json, WritingRepairsInvalidUtf8) {
  EXPECT_EQ(json::write(Json("a\xFF"
                             "b\xE2\x82")),
            "\"a\uFFFDb\uFFFD\"");
  EXPECT_EQ(json::write(JsonObject{{"\xC3(", 1}}), "{\"\uFFFD(\":1}");
}

TEST(Json, LooksUpByKindAndRange) {
  const auto object = json::parseObject(
      R"({"t":"x","b":true,"i":7,"d":7.9,"n":-7.9,"big":1e300,"max":9223372036854775808,)"
      R"("a":[1],"o":{"k":1},"null":null})");
  ASSERT_TRUE(object);
  EXPECT_EQ(*json::text(*object, "t"), "x");
  EXPECT_EQ(json::text(*object, "i"), nullptr);
  EXPECT_EQ(json::textOr(*object, "missing", "-"), "-");
  EXPECT_EQ(json::textOr(*object, "null", "-"), "-");
  EXPECT_EQ(json::boolean(*object, "b"), true);
  EXPECT_EQ(json::boolean(*object, "i"), std::nullopt);
  EXPECT_EQ(json::integer(*object, "i"), 7);
  EXPECT_EQ(json::integer(*object, "d"), 7);
  EXPECT_EQ(json::integer(*object, "n"), -7);
  EXPECT_EQ(json::integer(*object, "big"), std::nullopt);
  EXPECT_EQ(json::integer(*object, "max"), std::nullopt);
  EXPECT_EQ(json::integer(*object, "b"), std::nullopt);
  EXPECT_EQ(json::number(*object, "i"), 7.0);
  EXPECT_EQ(json::number(*object, "d"), 7.9);
  EXPECT_EQ(json::number(*object, "t"), std::nullopt);
  EXPECT_EQ(json::array(*object, "a")->size(), 1u);
  EXPECT_EQ(json::array(*object, "o"), nullptr);
  EXPECT_EQ(json::object(*object, "o")->size(), 1u);
  EXPECT_EQ(json::object(*object, "a"), nullptr);
  EXPECT_FALSE(json::parseObject("[]"));
  EXPECT_FALSE(json::parseObject("{"));
}

TEST(JsonWriter, PutsCommasBetweenAndNowhereElse) {
  std::string out;
  JsonWriter writer(out);
  writer.beginObject();
  writer.key("a");
  writer.beginArray();
  writer.value(1);
  writer.beginArray();
  writer.endArray();
  writer.null();
  writer.endArray();
  writer.key("b");
  writer.value(Json(JsonObject{{"k", true}}));
  writer.key("c");
  writer.value(false);
  writer.endObject();
  EXPECT_EQ(out, R"({"a":[1,[],null],"b":{"k":true},"c":false})");
}

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
