#include "platform/text/text.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

namespace vantrell {
namespace {

using Views = std::vector<std::string_view>;

constexpr std::string_view family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";
constexpr std::string_view flag = "\U0001F1E9\U0001F1EA";

TEST(Text, TrimsUnicodeWhiteSpaceAtBothEnds) {
  struct Case {
    std::string_view text, trimmed;
  };
  const Case cases[] = {
      {"", ""},
      {" \t\r\n\v\f ", ""},
      {"  a b  ", "a b"},
      {"\u00a0\u1680\u2003\u2028\u2029\u202f\u205f\u3000\u0085x\u3000\u0085", "x"},
      {"\u00e9 ", "\u00e9"},
      {" \u00e9", "\u00e9"},
      {"\u200bx\u200b", "\u200bx\u200b"},  // zero-width space is no white space
      {"\ufeffx", "\ufeffx"},
      {" \xA0 ", "\xA0"},  // an invalid byte, not U+00A0
      {"\xE2\x80", "\xE2\x80"},
      {" \U0001F600 ", "\U0001F600"},
  };
  for (const Case& c : cases) EXPECT_EQ(text::trimmed(c.text), c.trimmed) << c.text;
}

TEST(Text, CountsUserPerceivedCharacters) {
  const std::string flags = std::string(flag) + std::string(flag);
  const std::pair<std::size_t, std::vector<std::string_view>> cases[] = {
      {0, {""}},
      {1,
       {"\r", "e\u0301", "\u00e9\u0301", "\u00a9\uFE0F", family,
        "\u0915\u094D\u0937",  // a conjunct of two consonants
        "\u0600a",             // a prepended mark takes the ASCII letter behind it
        "1\uFE0F\u20E3"}},
      {2, {"\r\n\r\n", "\n\r", "\r\n\u0301", "\u00e9\r\n", flags}},
      {3,
       {"abc", "a\r\nb", "ae\u0301b",
        "a\xFF"
        "b",
        "a\xC3"
        "b",
        "a\xE2\x82"
        "b"}},
      {22, {"caf\u00e9 au lait, d\u00e9j\u00e0 vu\r\n"}},
  };
  for (const auto& [count, texts] : cases) {
    for (const auto text : texts) EXPECT_EQ(text::characterCount(text), count) << text;
  }
}

TEST(Text, CutsBetweenCharactersOnly) {
  const std::string text = "a\r\ne\u0301" + std::string(family) + "z" + std::string(flag);
  const std::string_view beginnings[] = {"", "a", "a\r\n", "a\r\ne\u0301",
                                         "a\r\ne\u0301\U0001F468\u200D\U0001F469\u200D\U0001F467"};
  for (std::size_t count = 0; count < std::size(beginnings); ++count) {
    EXPECT_EQ(text::firstCharacters(text, count), beginnings[count]);
  }
  EXPECT_EQ(text::firstCharacters(text, 5).size(), text.size() - flag.size());
  EXPECT_EQ(text::firstCharacters(text, 6), text);
  EXPECT_EQ(text::firstCharacters(text, 1000), text);
}

TEST(Text, LowersCaseByUnicodeRules) {
  EXPECT_EQ(text::lowercased("Hello [WORLD] @`{"), "hello [world] @`{");
  EXPECT_EQ(text::lowercased("\u00c9T\u00c9"), "\u00e9t\u00e9");
  EXPECT_EQ(text::lowercased("\u039F\u0394\u039F\u03A3"), "\u03BF\u03B4\u03BF\u03C2");
  EXPECT_EQ(text::lowercased("\u0130"), "i\u0307");
  EXPECT_EQ(text::lowercased("A\xFF\u00c9"), "a\uFFFD\u00e9");
}

TEST(Text, WordsAreOfLettersMarksAndNumbersOfAnyScript) {
  const std::pair<std::string_view, std::vector<std::string_view>> cases[] = {
      {"", {}},
      {" -- ", {}},
      {"what's up", {"what", "s", "up"}},
      {"what\u2019s", {"what", "s"}},
      {"no_word 4x\u00b2", {"no", "word", "4x\u00b2"}},  // an exponent is a number
      {"e\u0301te\u0301|\u0441\u0442\u0430\u0442", {"e\u0301te\u0301", "\u0441\u0442\u0430\u0442"}},
      {"a\xFF"
       "b\U0001F600c\U0001D504",
       {"a", "b", "c\U0001D504"}},
  };
  for (const auto& [text, words] : cases) EXPECT_EQ(text::words(text, 9), words) << text;
  EXPECT_EQ(text::words("a b c", 2), (std::vector<std::string_view>{"a", "b"}));
}

TEST(Text, SplitsLinesAtEveryNewline) {
  EXPECT_EQ(text::lines(""), (Views{""}));
  EXPECT_EQ(text::lines("one"), (Views{"one"}));
  EXPECT_EQ(text::lines("a\nb\n"), (Views{"a", "b", ""}));
  EXPECT_EQ(text::lines("a\r\nb"), (Views{"a", "", "b"}));
  EXPECT_EQ(text::lines("a\vb\fc\u0085d\u2028e\u2029f"), (Views{"a", "b", "c", "d", "e", "f"}));
  EXPECT_EQ(text::lines("\xC2x\xE2\x80"), (Views{"\xC2x\xE2\x80"}));
}

TEST(Text, ComparesAsPeopleSort) {
  // By bytes every one of these would be the other way round.
  EXPECT_LT(text::localizedCompare("apple", "Banana"), 0);
  EXPECT_LT(text::localizedCompare("\u00e9clair", "zebra"), 0);
  EXPECT_GT(text::localizedCompare("B", "a"), 0);
  EXPECT_EQ(text::localizedCompare("e\u0301", "\u00e9"), 0);
  EXPECT_EQ(text::localizedCompare("", ""), 0);
}

TEST(Text, RepairsAsBrowsersDo) {
  struct Case {
    std::string_view bytes, repaired;
  };
  const Case cases[] = {
      {"", ""},
      {"plain", "plain"},
      {"\u00e9\u4E2D\U0001F600", "\u00e9\u4E2D\U0001F600"},
      {"a\x80z", "a\uFFFDz"},
      {"\xC0\xAF", "\uFFFD\uFFFD"},
      {"\xE2\x82", "\uFFFD"},
      {"\xE2\x82(", "\uFFFD("},
      {"\xF0\x9F\x98", "\uFFFD"},
      {"\xF0\x9F\x98\xF0\x9F\x98\x80", "\uFFFD\U0001F600"},
      {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},
      {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"12345678\xFF"
       "12345678",
       "12345678\uFFFD12345678"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(text::repaired(c.bytes), c.repaired);
    EXPECT_EQ(text::isValidUtf8(c.bytes), c.bytes == c.repaired) << c.repaired;
    EXPECT_TRUE(text::isValidUtf8(c.repaired));
  }
}

TEST(Pattern, SeveralThreadsMayShareOne) {
  const auto pattern = text::Pattern::compile("(\\d+)-(\\d+)");
  std::vector<std::thread> threads;
  std::atomic<int> right = 0;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, number = std::to_string(t)] {
      const std::string text = "from " + number + "-" + number + number + " on";
      for (int i = 0; i < 500; ++i) {
        const auto match = pattern->findAll(text).at(0);
        right += match.groups[1] == number && match.groups[2] == number + number;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(right, 4 * 500);
}

TEST(Pattern, HostileInputFailsInsteadOfHanging) {
  // Exponential at one place, and quadratic over many places, each cheap by itself.
  std::string hostile(64, 'a');
  hostile += 'b';
  const auto pattern = text::Pattern::compile("(a+)+$");
  EXPECT_TRUE(pattern->findAll(hostile).empty());
  EXPECT_EQ(pattern->findAll("baa").size(), 1u) << "it must be usable again";
  EXPECT_TRUE(text::Pattern::compile("x+x+y")->findAll(std::string(300'000, 'x')).empty());
}

}  // namespace
}  // namespace vantrell
